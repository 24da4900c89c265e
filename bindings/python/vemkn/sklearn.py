"""The robust fit as an estimator for scikit-learn."""

from __future__ import annotations

import os
import warnings
from collections.abc import Sequence
from typing import Any

import numpy as np
from numpy.typing import ArrayLike
from sklearn.base import BaseEstimator, RegressorMixin
from sklearn.utils import check_random_state
from sklearn.utils.validation import check_array, check_is_fitted, check_X_y

from ._arrays import Array
from .fit import Curve, robust_fit

UNSET = "unset"


class VemknRegressor(RegressorMixin, BaseEstimator):  # type: ignore[misc]
    """Robust regression by a small feed-forward network, for one target or several.

    Residuals within six standard deviations of normal scatter, the *core*, count as Gaussian; those
    beyond as the tail of a Cauchy density, where one outlier costs little more than another. Inputs
    and targets are scaled inside, so data can be handed in as they are. Core, shift and decay are
    estimated with the weights: up to 30 % of gross outliers leave the curve nearly where it was. Several
    targets are fitted one by one.

    Parameters
    ----------
    hidden : sequence of int, or int, default (6,)
        Widths of the hidden layers.
    activation : {"softplus", "id"}, default "softplus"
        "id" is a linear model.
    core : float or array_like of shape (n_targets,), optional
        Standard deviation of normal scatter, in units of y; estimated if not given. Has to be given
        where more than half of the targets are one value.
    decay : float, optional
        Penalty 1/2 decay w^2 of the weights of scaled inputs and targets, beside the summed negative
        log-likelihood; 0 for none. Chosen by cross-validation if not given.
    n_starts : int, default 3
        Random starts.
    threads : int, default 1
        At most; no bit depends on it.
    random_state : int, RandomState or None, default 1
        The seed of starts and folds. An integer gives the digits that `vemkn-fit --seed` gives.
    hidden_layer_sizes : sequence of int
        Deprecated name of `hidden`.

    Attributes
    ----------
    curves_ : list of vemkn.fit.Curve
        One for each target.
    core_, shift_, decay_ : ndarray, shape (n_targets,)
        A prediction is shift + 3 core output of the network.
    outliers_ : ndarray of bool, shape (n_samples,) or (n_samples, n_targets)
        Rows of the fit that lie beyond six cores.
    n_features_in_ : int
    feature_names_in_ : ndarray
        Only if X has names for its columns.

    Examples
    --------
    >>> x = np.linspace(-2, 2, 41)[:, None]
    >>> y = x[:, 0] ** 2
    >>> y[10] = 1000.0  # an outlier
    >>> model = VemknRegressor(hidden=(4,)).fit(x, y)
    >>> bool(abs(model.predict(x[10:11])[0] - 1.0) < 0.1)
    True
    >>> np.flatnonzero(model.outliers_)
    array([10])
    """

    def __init__(
        self,
        hidden: Sequence[int] | int = (6,),
        *,
        activation: str = "softplus",
        core: ArrayLike | None = None,
        decay: float | None = None,
        n_starts: int = 3,
        threads: int = 1,
        random_state: int | np.random.RandomState | None = 1,
        hidden_layer_sizes: Sequence[int] | int | str = UNSET,
    ) -> None:
        self.hidden = hidden
        self.activation = activation
        self.core = core
        self.decay = decay
        self.n_starts = n_starts
        self.threads = threads
        self.random_state = random_state
        self.hidden_layer_sizes = hidden_layer_sizes

    def fit(self, X: ArrayLike, y: ArrayLike) -> VemknRegressor:
        """Fits a curve to each target.

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
        inputs, targets = check_X_y(
            X, y, multi_output=True, y_numeric=True, dtype=np.float64, ensure_min_samples=2
        )
        names = _names_of(X)
        columns = targets.reshape(len(inputs), -1).astype(np.float64)
        seed = self._seed()
        self.curves_ = [
            robust_fit(
                inputs,
                column,
                hidden=self._widths(),
                activation=self.activation,
                core=core,
                decay=self.decay,
                seed=seed,
                starts=self.n_starts,
                threads=self.threads,
                columns=names,
            )
            for column, core in zip(columns.T, self._cores(columns.shape[1]))
        ]
        self.n_features_in_ = inputs.shape[1]
        if names is not None:
            self.feature_names_in_ = np.array(names, dtype=object)
        elif hasattr(self, "feature_names_in_"):
            del self.feature_names_in_
        self._one_dimensional = targets.ndim == 1
        self.core_ = np.array([curve.core[0] for curve in self.curves_])
        self.shift_ = np.array([curve.shift[0] for curve in self.curves_])
        self.decay_ = np.array([curve.decay for curve in self.curves_])
        missed = np.abs(columns - self._predicted(inputs)) > 6.0 * self.core_
        self.outliers_ = self._as_y(missed)
        return self

    def predict(
        self,
        X: ArrayLike,
        return_std: bool = False,
        *,
        interval: float | None = None,
        kind: str = "confidence",
    ) -> Any:
        """Predictions, in the units of the y that was fitted.

        Parameters
        ----------
        X : array_like, shape (n_samples, n_features)
        return_std : bool
            Whether standard errors of the curve come along.
        interval : float, optional
            Level of the intervals that come along, as in 0.95.
        kind : {"confidence", "prediction"}
            Of intervals: where the curve lies, or a new row that is no outlier.

        Returns
        -------
        ndarray, shape (n_samples,) or (n_samples, n_targets), as y was
            With return_std or interval a tuple of as many more: errors, lower and upper ends.
        """
        check_is_fitted(self)
        self._check_feature_names(X, reset=False)
        inputs = check_array(X, dtype=np.float64)
        self._check_n_features(inputs, reset=False)
        if not return_std and interval is None:
            return self._as_y(self._predicted(inputs))
        level = 0.95 if interval is None else interval
        found = [curve.interval(inputs, level, kind) for curve in self.curves_]
        wanted = ["prediction"]
        wanted += ["error"] if return_std else []
        wanted += ["lower", "upper"] if interval is not None else []
        return tuple(
            self._as_y(np.column_stack([getattr(of_target, name) for of_target in found]))
            for name in wanted
        )

    def score(self, X: ArrayLike, y: ArrayLike, sample_weight: None = None) -> float:
        """1 - median |residual| / median |y - median y|, at least 0; the mean over several targets.

        Where R2, which `scoring="r2"` gives, is decided by one outlier among the rows.
        """
        if sample_weight is not None:
            raise ValueError("score takes no sample_weight")
        wanted = np.asarray(y, dtype=np.float64)
        missed = np.median(np.abs(wanted - self.predict(X)), axis=0)
        spread = np.median(np.abs(wanted - np.median(wanted, axis=0)), axis=0)
        ratio = np.divide(missed, spread, out=np.ones_like(spread), where=spread > 0)
        return float(np.mean(np.maximum(1.0 - ratio, 0.0)))

    def save(self, path: str | os.PathLike[str]) -> None:
        """Writes the model file of a fit of one target, which `vemkn-fit predict` reads, too."""
        check_is_fitted(self)
        if len(self.curves_) != 1:
            raise ValueError("a model file has one target: save each of curves_")
        self.curves_[0].save(path)

    def _as_y(self, columns: Array) -> Array:
        return columns[:, 0] if self._one_dimensional else columns

    def _predicted(self, inputs: Array) -> Array:
        return np.column_stack([curve.predict(inputs) for curve in self.curves_])

    def _widths(self) -> Any:
        if isinstance(self.hidden_layer_sizes, str):
            return self.hidden
        warnings.warn("hidden_layer_sizes is now hidden", FutureWarning, stacklevel=3)
        return self.hidden_layer_sizes

    def _cores(self, targets: int) -> list[float | None]:
        if self.core is None:
            return [None] * targets
        cores = np.asarray(self.core, dtype=np.float64)
        if cores.shape not in ((), (targets,)):
            raise ValueError(f"core must be one number, or one for each of {targets} targets")
        return [float(core) for core in np.broadcast_to(cores, targets)]

    def _seed(self) -> int:
        if isinstance(self.random_state, (int, np.integer)):
            return int(self.random_state)
        return int(check_random_state(self.random_state).randint(2**31 - 1))

    def _more_tags(self) -> dict[str, Any]:
        return {"multioutput": True}


def _names_of(X: Any) -> list[str] | None:
    """The names of a data frame's columns, if all are text."""
    names = getattr(X, "columns", None)
    if names is None or not all(isinstance(name, str) for name in names):
        return None
    return list(names)
