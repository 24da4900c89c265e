"""Networks under the optimisers of `scipy.optimize`.

A `Problem` is a network with one data set. Its methods have the signatures that SciPy's optimisers
want, so they can be handed over one by one; `minimize` and `least_squares` do that for the usual
cases.
"""

from __future__ import annotations

import math
from typing import Any

import numpy as np
import scipy.optimize
from numpy.typing import ArrayLike
from scipy.optimize import OptimizeResult
from scipy.sparse.linalg import LinearOperator

from ._arrays import Array
from .network import Network

# Those that take `hessp`.
_WITH_PRODUCTS = ("newton-cg", "trust-ncg", "trust-krylov", "trust-constr")
# Those that want the matrix itself.
_WITH_MATRIX = ("dogleg", "trust-exact")
_WITHOUT_GRADIENT = ("nelder-mead", "powell", "cobyla")


class Problem:
    """A network and one data set, as functions of the weights alone.

    Parameters
    ----------
    network : Network
        Not copied, and left open.
    x : array_like, shape (rows, numin)
        Inputs.
    y : array_like, shape (rows, numout)
        Targets.

    Raises
    ------
    ValueError
        For shapes that do not fit the network, or no rows.

    Notes
    -----
    Arrays that need no conversion are not copied: a change of theirs is a change of the problem.
    No result is kept from one call to the next.

    Where the objective is NaN, or its gradient is not finite, `fun` and `fun_and_grad` give
    infinity as the value. Optimisers turn back from infinity, if some clumsily; a NaN, which is
    neither larger nor smaller than anything, would end them or lead them on. `minimize` does
    better, see there.
    """

    def __init__(self, network: Network, x: ArrayLike, y: ArrayLike) -> None:
        self.network = network
        self.x, self.y = network._data(x, y, empty=False)
        # Least squares wants plain residuals, whatever the norm of the network.
        self._plain = network if network.norm == "sum" else network.with_norm("sum")

    @property
    def numel(self) -> int:
        """Number of weights."""
        return self.network.numel

    # --------------------------------------------------------------------- the network's objective

    def fun(self, w: ArrayLike) -> float:
        """The objective; infinite where it is NaN."""
        value = self.network.objective(w, self.x, self.y)
        return math.inf if math.isnan(value) else value

    def grad(self, w: ArrayLike) -> Array:
        """Its gradient, shape (numel,)."""
        return self.network.value_and_grad(w, self.x, self.y)[1]

    def fun_and_grad(self, w: ArrayLike) -> tuple[float, Array]:
        """Both, as SciPy takes them with ``jac=True``."""
        value, gradient = self.network.value_and_grad(w, self.x, self.y)
        finite = math.isfinite(value) and np.isfinite(gradient).all()
        return value if finite else math.inf, gradient

    def hessp(self, w: ArrayLike, p: ArrayLike) -> Array:
        """Product of the Hessian with `p`, shape (numel,) or (numel, k)."""
        return self.network.hvp(w, p, self.x, self.y)

    def hess(self, w: ArrayLike) -> Array:
        """The whole Hessian, shape (numel, numel), for as much work as numel products."""
        hessian = self.hessp(w, np.eye(self.numel))
        # Rounding leaves it a few units in the last place from symmetric.
        return np.asarray(0.5 * (hessian + hessian.T))

    # ------------------------------------------------------------------------------- least squares

    def residuals(self, w: ArrayLike) -> Array:
        """Outputs minus targets, row by row, shape (rows * numout,)."""
        return self._plain.residual(w, self.x, self.y).ravel()

    def jacobian(self, w: ArrayLike) -> Array:
        """Derivatives of `residuals`, shape (rows * numout, numel)."""
        return self._plain.jacobian(w, self.x, self.y).reshape(-1, self.numel)

    def jacobian_operator(self, w: ArrayLike) -> LinearOperator:
        """The same as products only: J v by vemk_Jv, and J^T u by vemk_vJ."""
        at = np.array(w, dtype=np.float64)  # the optimiser may change its array in place
        elements = self.y.size

        def product(v: Array) -> Array:
            return self._plain.jvp(at, v.ravel(), self.x, self.y)[1].ravel()

        def products(v: Array) -> Array:
            return self._plain.jvp(at, v, self.x, self.y)[1].reshape(elements, -1)

        def transposed_product(u: Array) -> Array:
            return self._plain.vjp(at, u.reshape(self.y.shape), self.x, self.y)[1]

        def transposed_products(u: Array) -> Array:
            return self._plain.vjp_many(at, u.T.reshape(-1, *self.y.shape), self.x, self.y)[1].T

        return LinearOperator(
            (elements, self.numel),
            matvec=product,
            matmat=products,
            rmatvec=transposed_product,
            rmatmat=transposed_products,
            dtype=np.float64,
        )


class Wall:
    """The objective and gradient of a problem, with something to climb where they are not finite.

    A step too far gets a value above all seen, and a slope that leads back. The value is finite and
    of the size of the others because line searches interpolate with it.

    Raises
    ------
    ValueError
        If the first call, at the start of a search, finds nothing finite.
    """

    def __init__(self, problem: Problem) -> None:
        self._problem = problem
        self._highest: float | None = None

    def __call__(self, w: Array) -> tuple[float, Array]:
        value, gradient = self._problem.fun_and_grad(w)
        if math.isfinite(value):
            self._highest = max(self._highest or 0.0, abs(value))
            return value, gradient
        if self._highest is None:
            raise ValueError("the objective or its gradient is not finite at the start")
        wall = 2.0 * self._highest + 1.0
        return wall, wall / max(float(w @ w), 1.0) * w


def minimize(
    problem: Problem, w0: ArrayLike, method: str = "L-BFGS-B", **keywords: Any
) -> OptimizeResult:
    """Minimises the objective of a problem with `scipy.optimize.minimize`.

    Parameters
    ----------
    problem : Problem
        Its network must not have the norm "sum", the signed mean, which has no minimum.
    w0 : array_like, shape (numel,)
        Weights to begin with. Zeros are a bad choice: all hidden units would stay equal.
    method : str
        Any of SciPy's. "L-BFGS-B", "BFGS" and the like get the gradient; "Newton-CG",
        "trust-krylov" and "trust-ncg" the products of the Hessian too, "trust-exact" the Hessian.
    **keywords
        Handed on: ``tol``, ``callback``, ``options`` and the like.

    Returns
    -------
    scipy.optimize.OptimizeResult
        The weights are its ``x``.

    Raises
    ------
    ValueError
        For the norm "sum", and for a start where the objective is not finite. A later step to where
        it is not finite is met with a value above all seen, so that the search turns back. Methods
        without gradients get infinity for both.
    """
    if problem.network.norm == "sum":
        raise ValueError('the norm "sum" has no minimum; use least_squares, or another norm')
    if method.lower() in _WITHOUT_GRADIENT:
        return scipy.optimize.minimize(problem.fun, w0, method=method, **keywords)
    if method.lower() in _WITH_PRODUCTS:
        keywords = {"hessp": problem.hessp, **keywords}
    elif method.lower() in _WITH_MATRIX:
        keywords = {"hess": problem.hess, **keywords}
    return scipy.optimize.minimize(Wall(problem), w0, jac=True, method=method, **keywords)


def least_squares(
    problem: Problem, w0: ArrayLike, *, dense: bool = False, **keywords: Any
) -> OptimizeResult:
    """Minimises the sum of squared residuals with `scipy.optimize.least_squares`.

    Parameters
    ----------
    problem : Problem
        Its network may have any norm; this looks at the residuals only.
    w0 : array_like, shape (numel,)
        Weights to begin with.
    dense : bool
        Whether to form the Jacobian, rows * numout by numel. If not, SciPy gets it as an operator,
        which takes less memory, and solves for its steps iteratively.
    **keywords
        Handed on: ``loss``, ``bounds``, ``xtol`` and the like.

    Returns
    -------
    scipy.optimize.OptimizeResult
        The weights are its ``x``.
    """
    if dense:
        return scipy.optimize.least_squares(
            problem.residuals, w0, jac=problem.jacobian, **keywords
        )
    # SciPy's tolerance for a step, 1e-6, is too loose for how ill-conditioned networks are: with it
    # a search creeps for thousands of steps where ten would do.
    keywords = {"tr_options": {"atol": 1e-10, "btol": 1e-10}, **keywords}
    return scipy.optimize.least_squares(
        problem.residuals, w0, jac=problem.jacobian_operator, **keywords
    )
