"""The adapters for SciPy: the same optimum by every way, and steps that lead too far."""

from __future__ import annotations

from typing import Any

import numpy as np
import pytest
import reference
import scipy.optimize
from conftest import Case
from reference import assert_close
from scipy.sparse.linalg import aslinearoperator
from vemkn import Network
from vemkn._arrays import Array
from vemkn.optimize import Problem, least_squares, minimize

ENDS = {
    "L-BFGS-B": {"ftol": 1e-15, "gtol": 1e-8, "maxiter": 5000, "maxfun": 20000},
    "Newton-CG": {"xtol": 1e-12},
    "trust-krylov": {"gtol": 1e-8},
    "trust-ncg": {"gtol": 1e-8},
    "trust-exact": {"gtol": 1e-8},
}


@pytest.fixture(scope="module")
def bump() -> tuple[Problem, Array]:
    """A bump of two units with a little scatter, which determines all weights; and a start nearby.

    All residuals lie in the core, where the likelihood is a Gaussian's, so that its optimum is that
    of least squares too.
    """
    random = np.random.default_rng(3)
    network = Network(1, 1, hidden=[2], activation="atan")
    truth = np.array([1.0, -1.0, 2.0, 2.0, 0.1, 0.7, -0.6])
    x = np.linspace(-2, 2, 80)[:, np.newaxis]
    y = network.compute(truth, x) + 0.05 * random.standard_normal((80, 1))
    return Problem(network, x, y), truth + 0.1 * random.standard_normal(7)


@pytest.fixture(scope="module")
def optimum(bump: tuple[Problem, Array]) -> Array:
    problem, start = bump
    ends = {"xtol": 1e-15, "ftol": 1e-15, "gtol": 1e-12}
    found: Array = least_squares(problem, start, dense=True, **ends).x
    gradient = reference.gradient(problem.network, found, problem.x, problem.y)
    assert np.linalg.norm(gradient) < 1e-8
    assert np.linalg.eigvalsh(problem.hess(found)).min() > 1e-4
    return found


@pytest.mark.parametrize("method", ENDS)
def test_every_method_ends_at_the_same_optimum(
    method: str, bump: tuple[Problem, Array], optimum: Array
) -> None:
    problem, start = bump
    result = minimize(problem, start, method, options=ENDS[method])
    # A gradient of 1e-8 over the lowest curvature, 1e-4.
    assert_close(result.x, optimum, 1e-4)
    assert_close(result.fun, problem.fun(optimum), 1e-9)


def test_least_squares_by_products_ends_at_the_same_optimum(
    bump: tuple[Problem, Array], optimum: Array
) -> None:
    problem, start = bump
    result = least_squares(problem, start, xtol=1e-15, ftol=1e-15, gtol=1e-10)
    assert_close(result.x, optimum, 1e-4)
    assert_close(2 * result.cost, (problem.residuals(optimum) ** 2).sum(), 1e-9)


def test_a_network_goes_without_a_problem(bump: tuple[Problem, Array], optimum: Array) -> None:
    problem, start = bump
    result = scipy.optimize.minimize(
        problem.network.value_and_grad,
        start,
        args=(problem.x, problem.y),
        jac=True,
        hessp=problem.network.hvp,
        method="Newton-CG",
        options=ENDS["Newton-CG"],
    )
    assert result.nhev > 0
    assert_close(result.x, optimum, 1e-4)


def test_products_save_evaluations(bump: tuple[Problem, Array]) -> None:
    """That SciPy uses what it is handed: without products Newton-CG differences gradients."""
    problem, start = bump
    counts = []
    for with_products in (True, False):
        given: dict[str, Any] = {} if with_products else {"hessp": None}
        result = minimize(problem, start, "Newton-CG", options={"xtol": 1e-12}, **given)
        counts.append((result.nhev > 0, result.njev))
    (with_hessp, few), (without_hessp, many) = counts
    assert with_hessp and not without_hessp and few < many


def test_an_optimiser_without_gradients(bump: tuple[Problem, Array], optimum: Array) -> None:
    problem, start = bump
    options = {"maxiter": 20000, "maxfev": 20000, "xatol": 1e-9, "fatol": 1e-15}
    result = minimize(problem, start, "Nelder-Mead", options=options)
    assert_close(result.fun, problem.fun(optimum), 1e-9)


def test_the_signed_mean_has_no_minimum(one: Case) -> None:
    with one.network.with_norm("sum") as plain:
        with pytest.raises(ValueError, match="has no minimum"):
            minimize(Problem(plain, one.x, one.y), one.w)


def test_the_functions_of_a_problem(case: Case) -> None:
    problem = Problem(case.network, case.x, case.y)
    value, gradient = case.network.value_and_grad(case.w, case.x, case.y)
    assert problem.numel == case.network.numel
    assert problem.fun(case.w) == value
    assert problem.fun_and_grad(case.w)[0] == value
    assert (problem.grad(case.w) == gradient).all()
    assert (problem.hessp(case.w, case.w) == case.network.hvp(case.w, case.w, case.x, case.y)).all()
    assert (problem.hess(case.w) == problem.hess(case.w).T).all()
    assert_close(problem.hess(case.w) @ case.w, problem.hessp(case.w, case.w), 1e-10)


def test_least_squares_sees_plain_residuals_under_every_norm(case: Case) -> None:
    problem = Problem(case.network, case.x, case.y)
    r = reference.outputs(case.network, case.w, case.x) - case.y
    jacobian = reference.jacobian_of(
        lambda w: reference.outputs(case.network, w, case.x).ravel(), case.w
    )
    assert_close(problem.residuals(case.w), r.ravel(), 1e-13)
    assert_close(problem.jacobian(case.w), jacobian, 1e-11)
    operator, expected = problem.jacobian_operator(case.w), aslinearoperator(jacobian)
    assert operator.shape == expected.shape
    v = case.random.standard_normal((operator.shape[1], 3))
    u = case.random.standard_normal((operator.shape[0], 3))
    assert_close(operator.matvec(v[:, 0]), expected.matvec(v[:, 0]), 1e-11)
    assert_close(operator.matvec(v[:, :1]), expected.matvec(v[:, :1]), 1e-11)
    assert_close(operator.rmatvec(u[:, 0]), expected.rmatvec(u[:, 0]), 1e-11)
    assert_close(operator.matmat(v), expected.matmat(v), 1e-11)
    assert_close(operator.rmatmat(u), expected.rmatmat(u), 1e-11)


def test_an_operator_keeps_its_weights(case: Case) -> None:
    problem = Problem(case.network, case.x, case.y)
    w = case.w.copy()
    operator = problem.jacobian_operator(w)
    before = operator.matvec(case.w)
    w[:] = 0.0
    assert (operator.matvec(case.w) == before).all()


def test_a_problem_holds_on_to_the_data_without_copying(one: Case) -> None:
    problem = Problem(one.network, one.x, one.y)
    assert problem.x is one.x and problem.y is one.y
    with pytest.raises(ValueError, match="no rows"):
        Problem(one.network, np.empty((0, 2)), np.empty((0, 1)))


def test_what_is_not_finite_is_infinite_to_an_optimiser(one: Case) -> None:
    problem = Problem(one.network, one.x, one.y)
    lost = np.where(np.arange(one.w.size) == 0, np.nan, one.w)
    assert np.isnan(one.network.objective(lost, one.x, one.y))
    assert problem.fun(lost) == np.inf
    assert problem.fun_and_grad(lost)[0] == np.inf
    # Gradients overflow earlier than values.
    less_far = 1e70 * one.w
    assert np.isfinite(problem.fun(less_far))
    assert problem.fun_and_grad(less_far)[0] == np.inf


class WithAnAbyss(Problem):
    """Some evaluations early in a search get infinite weights, as if the step were too far."""

    evaluations = 0

    def _or_abyss(self, w: Any) -> Array:
        self.evaluations += 1
        return np.full(self.numel, np.inf) if self.evaluations in (2, 3, 6) else np.asarray(w)

    def fun_and_grad(self, w: Any) -> tuple[float, Array]:
        return super().fun_and_grad(self._or_abyss(w))

    def residuals(self, w: Any) -> Array:
        return super().residuals(self._or_abyss(w))


@pytest.mark.parametrize("method", [*ENDS, "least_squares"])
def test_steps_into_an_abyss_do_not_end_a_search(
    method: str, bump: tuple[Problem, Array], optimum: Array
) -> None:
    normal, start = bump
    assert np.isnan(normal.network.objective(np.full(7, np.inf), normal.x, normal.y))
    problem = WithAnAbyss(normal.network, normal.x, normal.y)
    if method == "least_squares":
        result = least_squares(problem, start, xtol=1e-15, ftol=1e-15, gtol=1e-10)
    else:
        result = minimize(problem, start, method, options=ENDS[method])
    assert problem.evaluations > 6
    assert_close(result.x, optimum, 1e-4)


def test_a_start_in_the_abyss_is_refused(one: Case) -> None:
    problem = Problem(one.network, one.x, one.y)
    with pytest.raises(ValueError, match="not finite at the start"):
        minimize(problem, 1e160 * one.w)
