"""The estimator: scikit-learn's own checks, robustness, names, pickling, the score."""

from __future__ import annotations

import pickle
import warnings
from collections.abc import Callable
from pathlib import Path
from typing import Any

import numpy as np
import pytest
from numpy.random import RandomState
from reference import assert_close
from sklearn.base import clone
from sklearn.exceptions import NotFittedError
from sklearn.model_selection import GridSearchCV
from sklearn.pipeline import make_pipeline
from sklearn.preprocessing import PolynomialFeatures
from sklearn.utils.estimator_checks import parametrize_with_checks
from vemkn._arrays import Array
from vemkn.fit import Curve
from vemkn.sklearn import VemknRegressor

Data = tuple[Array, Array, Array]


# Some checks have targets of which more than half are one value.
@parametrize_with_checks([VemknRegressor(core=0.3, decay=0.1, n_starts=1)])  # type: ignore[misc]
def test_scikit_learns_checks(estimator: Any, check: Callable[[Any], None]) -> None:
    check(estimator)


@pytest.fixture(scope="module")
def data() -> Data:
    """A curved surface, what is measured of it with scatter 1, one row in ten far off."""
    random = np.random.default_rng(5)
    x = random.uniform(-2, 2, (200, 2))
    truth = 50.0 + 10.0 * np.sin(x[:, 0]) + 5.0 * x[:, 1] ** 2
    y = truth + random.standard_normal(200)
    y[::10] += 300.0
    return x, truth, y


@pytest.fixture(scope="module")
def model(data: Data) -> VemknRegressor:
    x, _, y = data
    return VemknRegressor().fit(x, y)


def test_outliers_do_not_pull_the_fit(model: VemknRegressor, data: Data) -> None:
    """Least squares would be off by 30, a tenth of 300."""
    x, truth, y = data
    assert np.sqrt(np.mean((model.predict(x) - truth) ** 2)) < 0.5
    assert 0.8 < model.core_[0] < 1.2
    assert (np.flatnonzero(model.outliers_) == np.arange(0, 200, 10)).all()


def test_the_score_is_that_of_the_median_row(model: VemknRegressor, data: Data) -> None:
    x, truth, y = data
    missed = np.median(np.abs(y - model.predict(x))) / np.median(np.abs(y - np.median(y)))
    assert model.score(x, y) == pytest.approx(1.0 - missed)
    assert model.score(x, truth + 1e6) == 0.0
    assert model.score(x, np.full(200, 3.0)) == 0.0


def test_several_targets_are_fitted_one_by_one(data: Data) -> None:
    x, _, y = data
    both = np.column_stack([y, -y])
    one = VemknRegressor(decay=0.3, n_starts=1).fit(x, y)
    fitted = clone(one).fit(x, both)
    assert fitted.predict(x).shape == fitted.outliers_.shape == (200, 2)
    assert (fitted.predict(x)[:, 0] == one.predict(x)).all()
    cores = clone(one).set_params(core=[1.0, 2.0]).fit(x, both)
    assert_close(cores.core_, [1.0, 2.0], 1e-15)
    with pytest.raises(ValueError, match="a model file has one target"):
        cores.save("model.json")


def test_standard_errors_and_intervals(model: VemknRegressor, data: Data) -> None:
    x, _, _ = data
    curve = model.curves_[0].interval(x, 0.8, "confidence")
    predictions, errors = model.predict(x, return_std=True)
    assert (predictions == model.predict(x)).all() and (errors == curve.error).all()
    _, lower, upper = model.predict(x, interval=0.8)
    assert (lower == curve.lower).all() and (upper == curve.upper).all()
    *_, wide = model.predict(x, True, interval=0.8, kind="prediction")
    assert (wide > upper).all()


def test_the_same_state_gives_the_same_bits(data: Data) -> None:
    x, _, y = data
    model = VemknRegressor(random_state=3, decay=0.3, n_starts=1).fit(x, y)
    again = clone(model).set_params(threads=2).fit(x, y)
    assert (again.curves_[0].weights == model.curves_[0].weights).all()
    for state in (4, RandomState(4), None):
        other = clone(model).set_params(random_state=state).fit(x, y)
        assert (other.curves_[0].weights != model.curves_[0].weights).any()


def test_a_fitted_model_survives_pickling(model: VemknRegressor, data: Data) -> None:
    x, _, _ = data
    assert (pickle.loads(pickle.dumps(model)).predict(x) == model.predict(x)).all()


def test_a_fitted_model_survives_its_file(
    model: VemknRegressor, data: Data, tmp_path: Path
) -> None:
    x, _, _ = data
    model.save(tmp_path / "model.json")
    assert (Curve.load(tmp_path / "model.json").predict(x) == model.predict(x)).all()


def test_names_of_columns(data: Data) -> None:
    pandas = pytest.importorskip("pandas")
    x, _, y = data
    frame = pandas.DataFrame(x, columns=["height", "width"])
    model = VemknRegressor(decay=0.3, n_starts=1).fit(frame, y)
    assert list(model.feature_names_in_) == ["height", "width"]
    assert model.curves_[0].columns == ("height", "width")
    with pytest.raises(ValueError, match="feature names"):
        model.predict(frame[["width", "height"]])
    model.fit(x, y)
    assert not hasattr(model, "feature_names_in_")


def test_in_a_pipeline_and_a_grid(data: Data) -> None:
    x, _, y = data
    pipeline = make_pipeline(
        PolynomialFeatures(2, include_bias=False), VemknRegressor(decay=0.3, n_starts=1)
    )
    grid = GridSearchCV(pipeline, {"vemknregressor__hidden": [2, (4, 3)]}, cv=2)
    assert grid.fit(x, y).best_score_ > 0.5


def test_the_old_name_of_hidden(data: Data) -> None:
    x, _, y = data
    with pytest.warns(FutureWarning, match="now hidden"):
        old = VemknRegressor(hidden_layer_sizes=(3,), decay=0.3, n_starts=1).fit(x, y)
    assert old.curves_[0].hidden == (3,)
    with warnings.catch_warnings():
        warnings.simplefilter("error")
        assert clone(old).set_params(hidden=3, hidden_layer_sizes="unset").fit(x, y).curves_[0].hidden == (3,)


@pytest.mark.parametrize(
    ("parameters", "message"),
    [
        ({"n_starts": 0}, "starts: 0 is not within 1"),
        ({"threads": 0}, "threads: 0 is not within 1"),
        ({"random_state": -1}, "seed: -1 is not within 0"),
        ({"hidden": 0}, "are not widths of layers"),
        ({"activation": "tanh"}, "tanh"),
        ({"core": 0.0}, "core: 0.0 is not a positive number"),
        ({"core": np.nan}, "core: nan is not a positive number"),
        ({"core": [1.0, 2.0]}, "core must be one number, or one for each of 1 targets"),
        ({"decay": -1.0}, "decay: -1.0 is not a number from 0 on"),
        ({"decay": np.inf}, "decay: inf is not a number from 0 on"),
    ],
)
def test_unsuitable_parameters(parameters: dict[str, Any], message: str, data: Data) -> None:
    x, _, y = data
    with pytest.raises(ValueError, match=message):
        VemknRegressor(**parameters).fit(x, y)


def test_targets_without_scatter_want_a_core(data: Data) -> None:
    x, _, _ = data
    with pytest.raises(ValueError, match="one value"):
        VemknRegressor().fit(x, np.full(200, 7.0))
    zeros_and_claims = np.where(np.arange(200) % 3 == 0, 5.0 + x[:, 0], 0.0)
    with pytest.raises(ValueError, match="more than half of the targets are one value"):
        VemknRegressor().fit(x, zeros_and_claims)
    fitted = VemknRegressor(core=1.0, decay=1.0, n_starts=1).fit(x, zeros_and_claims)
    assert np.isfinite(fitted.predict(x)).all()


def test_before_fitting() -> None:
    with pytest.raises(NotFittedError):
        VemknRegressor().predict([[0.0]])
