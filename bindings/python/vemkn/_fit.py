"""How the estimator fits, which is how vemkn-fit does: starts, searches, early stopping."""

from __future__ import annotations

import math
from dataclasses import dataclass, replace

import numpy as np
import scipy.optimize

from ._arrays import Array
from .network import Network
from .optimize import Problem, Wall

# Enough for a median; the bisection need not see every row.
_ROWS_LOOKED_AT = 500
# A gain, in parts of the objective, for which a search is begun anew.
_WORTH_A_NEW_SEARCH = 1e-4

ITERATION_LIMIT = "iteration limit"


@dataclass(frozen=True)
class StopRule:
    """When a search ends: iterations, relative gain of the objective, new lowest points without a
    gain on the held-out rows."""

    max_iter: int
    tol: float
    patience: int


@dataclass(frozen=True)
class Outcome:
    """What one start came to. Without held-out rows, `validation` is the objective."""

    weights: Array
    objective: float
    validation: float
    iterations: int = 0
    ending: str = ""


def starting_weights(network: Network, x: Array, y: Array, random: np.random.RandomState) -> Array:
    """Random weights of the size that suits each layer's width, and output biases that bring the
    median of every output to that of its target.

    Without the latter a robust likelihood may start with all rows in its flat tails, where nothing
    pulls. The biases are found by bisection through the network, as its activation acts on them.
    """
    w = np.empty(network.numel)
    for biases, matrix in network.split(w):
        biases[:] = random.standard_normal(biases.shape)
        matrix[:] = random.standard_normal(matrix.shape) / math.sqrt(len(matrix))
    wanted = np.median(y, axis=0)
    some = x[:: max(1, len(x) // _ROWS_LOOKED_AT)]
    reach = np.abs(wanted).max() + 20.0
    low, high = np.full(wanted.shape, -reach), np.full(wanted.shape, reach)
    last_biases = network.split(w)[-1][0]
    for _ in range(40):
        last_biases[:] = 0.5 * (low + high)
        below = np.median(network.compute(w, some), axis=0) < wanted
        low, high = np.where(below, last_biases, low), np.where(below, high, last_biases)
    return w


class _Stopped(Exception):
    """Ends SciPy's search from within; its text is the reason."""


class _Search:
    """One start: the objective as SciPy's search sees it, and the best weights so far."""

    def __init__(self, training: Problem, held_out: Problem | None, rule: StopRule) -> None:
        self._wall = Wall(training)
        self._held_out = held_out
        self._rule = rule
        self._iterations = 0
        self._lowest, self._lowest_at = math.inf, np.empty(0)
        self._best: Outcome | None = None
        self._without_gain = 0

    def run(self, w: Array) -> Outcome:
        """The likelihood jumps where a residual leaves its core. A line search that meets such a
        jump ends, and curvature measured across one is worthless, so the search begins anew from
        the lowest point, with an empty memory, for as long as that gains anything worth having."""
        ending = "converged"
        try:
            gain = math.inf
            # At 0 exactly, every gain would be worth it, and there is none.
            while gain > 0.0 and gain >= _WORTH_A_NEW_SEARCH * abs(self._lowest):
                before = self._lowest
                self._descend(w)
                w, gain = self._lowest_at, before - self._lowest
        except _Stopped as stopped:
            ending = str(stopped)
        assert self._best is not None, "the wall lets no search begin without a finite value"
        return replace(self._best, iterations=self._iterations, ending=ending)

    def _descend(self, w: Array) -> None:
        left = self._rule.max_iter - self._iterations
        options = {"maxiter": left, "ftol": self._rule.tol, "gtol": 0.0}
        scipy.optimize.minimize(
            self._fun_and_grad,
            w,
            jac=True,
            method="L-BFGS-B",
            callback=self._count,
            options=options,
        )

    def _count(self, _: Array) -> None:
        self._iterations += 1
        if self._iterations >= self._rule.max_iter:
            raise _Stopped(ITERATION_LIMIT)

    def _fun_and_grad(self, w: Array) -> tuple[float, Array]:
        value, gradient = self._wall(w)
        if value < self._lowest:
            self._lowest, self._lowest_at = value, w.copy()
            self._judge()
        return value, gradient

    def _judge(self) -> None:
        """Asks the held-out rows about a new lowest point."""
        w, objective = self._lowest_at, self._lowest
        validation = objective if self._held_out is None else self._held_out.fun(w)
        if self._best is None or validation < self._best.validation:
            self._best = Outcome(w, objective, validation)
            self._without_gain = 0
            return
        self._without_gain += 1
        if self._without_gain > self._rule.patience:
            raise _Stopped("held-out error no longer falls")


def search(training: Problem, held_out: Problem | None, w: Array, rule: StopRule) -> Outcome:
    """Minimises from w by L-BFGS until the objective no longer falls, or the held-out rows no
    longer gain; gives the weights that did best on them."""
    return _Search(training, held_out, rule).run(w)
