"""The estimator: scikit-learn's own checks, robustness, scaling, reproducibility."""

from __future__ import annotations

import itertools
import pickle
from collections.abc import Callable
from typing import Any

import numpy as np
import pytest
from numpy.random import RandomState
from reference import assert_close
from sklearn.base import clone
from sklearn.exceptions import ConvergenceWarning, NotFittedError
from sklearn.model_selection import GridSearchCV
from sklearn.pipeline import make_pipeline
from sklearn.preprocessing import PolynomialFeatures
from sklearn.utils.estimator_checks import parametrize_with_checks
from vemkn import Network
from vemkn._arrays import Array
from vemkn._fit import starting_weights
from vemkn._scaling import InputMap, TargetMap, default_core
from vemkn.optimize import Problem
from vemkn.sklearn import VemknRegressor


@pytest.mark.filterwarnings("ignore:the fit has not:sklearn.exceptions.ConvergenceWarning")
@parametrize_with_checks([VemknRegressor()])  # type: ignore[misc]
def test_scikit_learns_checks(estimator: Any, check: Callable[[Any], None]) -> None:
    check(estimator)


@pytest.fixture(scope="module")
def data() -> tuple[Array, Array, Array]:
    """A curved surface, what is measured of it with scatter, one row in ten far off."""
    random = np.random.default_rng(5)
    x = random.uniform(-2, 2, (400, 2))
    truth = 50.0 + 10.0 * np.sin(x[:, 0]) + 5.0 * x[:, 1] ** 2
    y = truth + random.standard_normal(400)
    y[::10] += 300.0
    return x, truth, y


@pytest.mark.parametrize("activation", ["softplus", "relu"])
def test_outliers_do_not_pull_the_fit(activation: str, data: tuple[Array, Array, Array]) -> None:
    """Least squares would be off by 30, a tenth of 300; the scatter of the other rows is 1."""
    x, truth, y = data
    model = VemknRegressor((8,), activation, core=1.0, random_state=0).fit(x, y)
    error = model.predict(x) - truth
    assert np.median(np.abs(error)) < 1.0
    assert abs(np.median(error)) < 0.5


def test_atan_within_its_range(data: tuple[Array, Array, Array]) -> None:
    x, truth, _ = data
    model = VemknRegressor((8,), "atan", random_state=0).fit(x, truth)
    assert model.score(x, truth) > 0.99


def test_an_affine_network_finds_the_line_under_outliers() -> None:
    random = np.random.default_rng(6)
    x = random.standard_normal((200, 3))
    y = x @ [1.0, -2.0, 3.0] - 700.0 + 0.1 * random.standard_normal(200)
    y[::7] -= 100.0
    model = VemknRegressor((2,), "id", core=0.1, random_state=0, validation_fraction=0).fit(x, y)
    line = model.predict(np.vstack([np.zeros(3), np.eye(3)]))
    # Three standard errors of 0.1 / sqrt(170).
    assert_close(line[0], -700.0, 1e-4)
    assert np.abs(np.diff(line[[0, 1]]) - 1.0) < 0.06
    assert np.abs(line[3] - line[0] - 3.0) < 0.06


def test_several_targets_have_scales_of_their_own(data: tuple[Array, Array, Array]) -> None:
    x, truth, y = data
    both = np.column_stack([y, 1e-3 * y - 7.0])
    model = VemknRegressor((8,), core=[1.0, 1e-3], random_state=0).fit(x, both)
    predictions = model.predict(x)
    assert predictions.shape == both.shape
    assert_close(model.core_, [1.0, 1e-3], 0.0)
    assert np.median(np.abs(predictions[:, 0] - truth)) < 1.0
    assert np.median(np.abs(predictions[:, 1] - (1e-3 * truth - 7.0))) < 1e-3


def test_the_same_state_gives_the_same_bits(data: tuple[Array, Array, Array]) -> None:
    x, _, y = data
    model = VemknRegressor(random_state=3, n_starts=2).fit(x, y)
    again = clone(model).fit(x, y)
    assert (again.network_.weights == model.network_.weights).all()
    other = clone(model).set_params(random_state=RandomState(4)).fit(x, y)
    assert (other.network_.weights != model.network_.weights).any()
    more = clone(model).set_params(n_starts=3).fit(x, y)
    assert more.starts_[:2] == model.starts_
    assert model.validation_ == min(start[1] for start in model.starts_)


def test_a_fitted_model_survives_pickling(data: tuple[Array, Array, Array]) -> None:
    x, _, y = data
    model = VemknRegressor(random_state=0, n_starts=1).fit(x, y)
    assert (pickle.loads(pickle.dumps(model)).predict(x) == model.predict(x)).all()


def test_in_a_pipeline_and_a_grid(data: tuple[Array, Array, Array]) -> None:
    x, _, y = data
    pipeline = make_pipeline(
        PolynomialFeatures(2, include_bias=False), VemknRegressor(random_state=0, n_starts=1)
    )
    grid = GridSearchCV(pipeline, {"vemknregressor__hidden_layer_sizes": [(2,), (4, 3)]}, cv=2)
    grid.fit(x, np.minimum(y, 90.0))
    assert grid.predict(x).shape == y.shape


def test_the_iteration_limit_is_reported(data: tuple[Array, Array, Array]) -> None:
    x, _, y = data
    with pytest.warns(ConvergenceWarning, match="within 2 iterations"):
        model = VemknRegressor(random_state=0, max_iter=2).fit(x, y)
    assert model.n_iter_ == 2


def test_an_objective_of_exactly_0_ends_the_search(monkeypatch: pytest.MonkeyPatch) -> None:
    """Which rounding makes of residuals up to about 1e-8, so for any data without scatter."""
    evaluations = itertools.count()
    really = Problem.fun_and_grad

    def counted(problem: Problem, w: Any) -> tuple[float, Array]:
        assert next(evaluations) < 10000, "the search does not end"
        return really(problem, w)

    monkeypatch.setattr(Problem, "fun_and_grad", counted)
    x = np.linspace(-1.0, 1.0, 20)[:, np.newaxis]
    model = VemknRegressor((1,), "id", random_state=0).fit(x, np.full(20, 3.0))
    assert model.objective_ == 0.0
    assert_close(model.predict(x), np.full(20, 3.0), 1e-6)


@pytest.mark.parametrize(
    ("parameters", "message"),
    [
        ({"n_starts": 0}, "n_starts must be at least 1"),
        ({"max_iter": 0}, "max_iter must be at least 1"),
        ({"tol": -1.0}, "tol must not be negative"),
        ({"patience": -1}, "patience must not be negative"),
        ({"validation_fraction": 1.0}, "validation_fraction must be"),
        ({"hidden_layer_sizes": ()}, "at least 2 layers"),
        ({"activation": "tanh"}, "activation: 'tanh'"),
        ({"core": 0.0}, "core must be positive"),
        ({"core": [1.0, 2.0]}, "core must be one number, or one for each of 1 targets"),
        ({"shift": np.nan}, "shift must be one number"),
        ({"activation": "atan", "core": 1.0}, "do not fit into the range of atan"),
    ],
)
def test_unsuitable_parameters(
    parameters: dict[str, Any], message: str, data: tuple[Array, Array, Array]
) -> None:
    x, _, y = data
    with pytest.raises(ValueError, match=message):
        VemknRegressor(**parameters).fit(x, y)


def test_before_fitting() -> None:
    with pytest.raises(NotFittedError):
        VemknRegressor().predict([[0.0]])


# ------------------------------------------------------------------------------ scaling and starts


def test_inputs_come_to_mean_0_and_deviation_1() -> None:
    x = np.array([[1.0, 5.0, 0.0], [3.0, 5.0, 0.0]])
    assert_close(InputMap.of(x).apply(x), [[-1, 0, 0], [1, 0, 0]], 1e-15)


@pytest.mark.parametrize(
    ("activation", "ends"),
    [("softplus", (1.0, 3.0)), ("relu", (1.0, 3.0)), ("id", (-0.5, 1.5)), ("atan", (-1.0, 1.0))],
)
def test_where_targets_lie_for_an_activation(activation: str, ends: tuple[float, float]) -> None:
    y = np.array([[10.0], [16.0], [12.0], [13.0], [22.0]])  # median 13, six core units wide
    scale = TargetMap.of(np.zeros((5, 1)), y, activation, 2.0, None)
    mapped = scale.apply(y)
    assert_close((mapped.min(), mapped.max()), ends, 1e-15)
    assert_close(scale.undo(mapped), y, 1e-14)


def test_atan_enlarges_a_core_that_was_not_given() -> None:
    y = np.append(np.linspace(0.0, 1.0, 99), 1000.0)[:, np.newaxis]
    mapped = TargetMap.of(np.zeros((100, 1)), y, "atan", None, None).apply(y)
    assert_close((mapped.min(), mapped.max()), (-1.4, 1.4), 1e-13)


def test_the_default_core_is_the_scatter_around_a_line_without_outliers() -> None:
    random = np.random.default_rng(7)
    x = random.standard_normal((5000, 2))
    y = 100.0 * x[:, 0] - 40.0 * x[:, 1] + 3.0 * random.standard_normal(5000)
    y[::20] += 1e4
    # Outliers of a twentieth widen a median deviation by 7 %; its own standard error is 1.7 %.
    assert 3.0 * 0.95 < default_core(x, y) < 3.0 * 1.15
    # Columns that depend on each other have no unique line; reweighting ends nearby.
    assert_close(default_core(np.column_stack([x, x]), y), default_core(x, y), 1e-2)


def test_the_default_core_of_degenerate_targets() -> None:
    x = np.arange(10.0)[:, np.newaxis]
    assert default_core(x, np.full(10, 7.0)) == 1.0
    exact_line = 2.0 * x[:, 0] + 1.0
    own = 1.482602218505602 * np.median(np.abs(exact_line - np.median(exact_line)))
    assert default_core(x, exact_line) == pytest.approx(0.01 * own)


@pytest.mark.parametrize("activation", ["softplus", "atan", "id"])
def test_a_start_meets_the_medians_of_the_targets(activation: str) -> None:
    random = np.random.default_rng(8)
    network = Network(3, 2, [3, 7, 5], activation=activation)
    x = random.standard_normal((200, 3))
    y = random.uniform(0.3, 1.2, (200, 2)) + [0.0, 0.3]
    w = starting_weights(network, x, y, RandomState(1))
    assert_close(np.median(network.compute(w, x), axis=0), np.median(y, axis=0), 1e-9)
    assert (starting_weights(network, x, y, RandomState(1)) == w).all()
