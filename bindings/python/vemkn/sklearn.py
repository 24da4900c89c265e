"""The network as an estimator for scikit-learn."""

from __future__ import annotations

import warnings
from collections.abc import Sequence
from typing import Any

import numpy as np
from numpy.typing import ArrayLike, NDArray
from sklearn.base import BaseEstimator, RegressorMixin
from sklearn.exceptions import ConvergenceWarning
from sklearn.utils import check_random_state
from sklearn.utils.validation import check_is_fitted

from ._arrays import Array
from ._fit import ITERATION_LIMIT, Outcome, StopRule, search, starting_weights
from ._scaling import InputMap, TargetMap
from .network import Network
from .optimize import Problem

Indices = NDArray[np.intp]


class VemknRegressor(RegressorMixin, BaseEstimator):  # type: ignore[misc]
    """Robust regression by a small feed-forward network, for one target or several.

    Residuals within six standard deviations of normal scatter, the *core scale*, count as Gaussian;
    those beyond as the tail of a Cauchy density, where one outlier costs little more than another.
    Inputs are standardised and targets scaled inside, so data can be handed in as they are.

    Parameters
    ----------
    hidden_layer_sizes : sequence of int, default (6,)
        Widths of the hidden layers, at least one.
    activation : {"softplus", "atan", "relu", "id"}, default "softplus"
        Acts on the output layer too: with softplus and relu predictions stay above the shift, with
        atan within a range around it.
    core : float or array_like of shape (n_targets,), optional
        Core scale in units of y. By default the scaled median absolute deviation around a
        least-absolute-deviations line, an upper estimate.
    shift : float or array_like of shape (n_targets,), optional
        What is taken off y before it is divided by three times the core. By default three cores
        below the lowest y for softplus and relu, the middle of y for atan, its median for id.
    n_starts : int, default 3
        Random starts; what does best on the held-out rows is kept.
    max_iter : int, default 5000
        Iterations of L-BFGS for each start.
    tol : float, default 1e-7
        Smallest relative change of the objective that is worth going on for.
    validation_fraction : float, default 0.2
        Share of rows that are held out to stop early; 0 for none.
    patience : int, default 50
        New lowest points without a gain on the held-out rows before a start ends.
    threads, batch : int, default 1 and 64
        As in `vemkn.Network`. The last bits of a fit depend on them.
    random_state : int, RandomState or None
        Draws the held-out rows and the starts. More starts leave the earlier ones as they are.

    Attributes
    ----------
    network_ : vemkn.Network
        The fitted network; its own weights are the fitted ones. It sees scaled data.
    core_, shift_ : ndarray, shape (n_targets,)
        The scaling of the targets.
    objective_, validation_ : float
        Mean negative log-likelihood of the training rows and of the held-out rows, in scaled units.
        The same number if no rows are held out.
    n_iter_ : int
        Iterations of the start that was kept.
    starts_ : list of tuple
        For each start its objective, its objective on the held-out rows, its iterations, and why it
        ended.
    n_features_in_ : int
    feature_names_in_ : ndarray
        Only if X has names for its columns.

    Examples
    --------
    >>> x = np.linspace(-2, 2, 41)[:, None]
    >>> y = x[:, 0] ** 2
    >>> y[10] = 1000.0  # an outlier
    >>> model = VemknRegressor(random_state=0, core=0.1, validation_fraction=0).fit(x, y)
    >>> bool(abs(model.predict(x[10:11]) - 1.0) < 0.1)
    True
    """

    def __init__(
        self,
        hidden_layer_sizes: Sequence[int] = (6,),
        activation: str = "softplus",
        *,
        core: ArrayLike | None = None,
        shift: ArrayLike | None = None,
        n_starts: int = 3,
        max_iter: int = 5000,
        tol: float = 1e-7,
        validation_fraction: float = 0.2,
        patience: int = 50,
        threads: int = 1,
        batch: int = 64,
        random_state: int | np.random.RandomState | None = None,
    ) -> None:
        self.hidden_layer_sizes = hidden_layer_sizes
        self.activation = activation
        self.core = core
        self.shift = shift
        self.n_starts = n_starts
        self.max_iter = max_iter
        self.tol = tol
        self.validation_fraction = validation_fraction
        self.patience = patience
        self.threads = threads
        self.batch = batch
        self.random_state = random_state

    def fit(self, X: ArrayLike, y: ArrayLike) -> VemknRegressor:
        """Fits the network.

        Parameters
        ----------
        X : array_like, shape (n_samples, n_features)
        y : array_like, shape (n_samples,) or (n_samples, n_targets)

        Returns
        -------
        self

        Raises
        ------
        ValueError
            For data that are not finite or do not fit together, and for unsuitable parameters.
        """
        inputs, targets = self._validate_data(
            X, y, multi_output=True, y_numeric=True, dtype=np.float64, ensure_min_samples=2
        )
        self._check_parameters()
        self._one_dimensional = targets.ndim == 1
        targets = np.asarray(targets, dtype=np.float64).reshape(len(inputs), -1)
        random = check_random_state(self.random_state)
        training, held_out = self._divide(len(inputs), random)

        self._input_map = InputMap.of(inputs[training])
        mapped = self._input_map.apply(inputs)
        target_map = TargetMap.of(
            mapped[training], targets[training], self.activation, self.core, self.shift
        )
        self.core_, self.shift_ = target_map.core, target_map.shift
        scaled = target_map.apply(targets)

        network = self._network(mapped.shape[1], scaled.shape[1])
        outcomes = self._search_from_all_starts(
            Problem(network, mapped[training], scaled[training]),
            Problem(network, mapped[held_out], scaled[held_out]) if len(held_out) else None,
            random,
        )
        best = min(outcomes, key=lambda outcome: outcome.validation)
        if best.ending == ITERATION_LIMIT:
            warnings.warn(
                f"the fit has not converged within {self.max_iter} iterations",
                ConvergenceWarning,
                stacklevel=2,
            )
        network.weights = best.weights
        self.network_ = network
        self.objective_, self.validation_ = best.objective, best.validation
        self.n_iter_ = best.iterations
        self.starts_ = [
            (each.objective, each.validation, each.iterations, each.ending) for each in outcomes
        ]
        return self

    def predict(self, X: ArrayLike) -> Array:
        """Predictions, in the units of the y that was fitted.

        Parameters
        ----------
        X : array_like, shape (n_samples, n_features)

        Returns
        -------
        ndarray, shape (n_samples,) or (n_samples, n_targets), as y was
        """
        check_is_fitted(self)
        inputs = self._validate_data(X, dtype=np.float64, reset=False)
        outputs = self.network_.compute(None, self._input_map.apply(inputs))
        predictions = TargetMap(self.core_, self.shift_).undo(outputs)
        return predictions[:, 0] if self._one_dimensional else predictions

    def _check_parameters(self) -> None:
        for name in ("n_starts", "max_iter"):
            if getattr(self, name) < 1:
                raise ValueError(f"{name} must be at least 1, is {getattr(self, name)}")
        for name in ("tol", "patience"):
            if getattr(self, name) < 0:
                raise ValueError(f"{name} must not be negative, is {getattr(self, name)}")
        if not 0 <= self.validation_fraction < 1:
            raise ValueError(
                f"validation_fraction must be in [0, 1), is {self.validation_fraction}"
            )

    def _divide(self, rows: int, random: np.random.RandomState) -> tuple[Indices, Indices]:
        """Training and held-out rows, each in the order of the data."""
        order = random.permutation(rows)
        # Two rows are the fewest that have scatter.
        count = min(round(self.validation_fraction * rows), rows - 2)
        return np.sort(order[count:]), np.sort(order[:count])

    def _network(self, numin: int, numout: int) -> Network:
        return Network(
            numin,
            numout,
            [numin, *self.hidden_layer_sizes],
            activation=self.activation,
            threads=self.threads,
            batch=self.batch,
        )

    def _search_from_all_starts(
        self, training: Problem, held_out: Problem | None, random: np.random.RandomState
    ) -> list[Outcome]:
        rule = StopRule(self.max_iter, self.tol, self.patience)
        # Each start draws from its own sequence, so more starts leave the earlier ones as they are.
        seeds = random.randint(2**31 - 1, size=self.n_starts)
        return [
            search(training, held_out, self._start(training, np.random.RandomState(seed)), rule)
            for seed in seeds
        ]

    @staticmethod
    def _start(training: Problem, random: np.random.RandomState) -> Array:
        return starting_weights(training.network, training.x, training.y, random)

    def _more_tags(self) -> dict[str, Any]:
        return {"multioutput": True}
