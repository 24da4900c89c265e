"""Robust fits and model files without scikit-learn."""

from __future__ import annotations

import copy
import json
import os
import subprocess
from pathlib import Path

import numpy as np
import pytest
import scipy.stats
from reference import assert_close
from vemkn import Network
from vemkn._arrays import Array
from vemkn.fit import Curve, FitError, Progress, robust_fit

Data = tuple[Array, Array]


@pytest.fixture(scope="module")
def data() -> Data:
    random = np.random.default_rng(7)
    x = random.uniform(-2, 2, 150)
    y = np.sin(2 * x) + 0.1 * random.standard_normal(150)
    y[::10] += 20.0
    return x, y


@pytest.fixture(scope="module")
def curve(data: Data) -> Curve:
    return robust_fit(*data, decay=0.1, columns=["time"], target="height")


def test_the_curve_under_outliers(curve: Curve, data: Data) -> None:
    x, _ = data
    assert np.abs(curve.predict(x) - np.sin(2 * x)).max() < 0.2
    assert 0.08 < curve.core[0] < 0.12
    assert (curve.rows, curve.beyond, curve.hidden) == (150, 15, (6,))
    assert (curve.columns, curve.targets, curve.decay) == (("time",), ("height",), 0.1)
    assert (curve.activation, curve.method) == ("softplus", "robust")
    assert all(isinstance(note, str) for note in curve.notes)


@pytest.mark.skipif("VEMKN_FIT_PROGRAM" not in os.environ, reason="VEMKN_FIT_PROGRAM names no vemkn-fit")
def test_the_program_writes_the_same_model(tmp_path: Path, data: Data) -> None:
    x, y = data
    x = x.copy()
    x[3] = 1e6
    rows = "".join(f"{a!r},{b!r}\n" for a, b in zip(x.tolist(), y.tolist()))
    (tmp_path / "rows.csv").write_text("time,height\n" + rows)
    options = "rows.csv --target height --method robust --no-plot --quiet --out fit"
    subprocess.run([os.environ["VEMKN_FIT_PROGRAM"], *options.split()], cwd=tmp_path, check=True)
    robust_fit(x, y, columns=["time"], target="height").save(tmp_path / "python.json")
    assert (tmp_path / "python.json").read_bytes() == (tmp_path / "fit" / "model.json").read_bytes()


def test_a_prediction_is_that_of_the_network(curve: Curve, data: Data) -> None:
    """Of inputs that are not bent: the median comes to 0 and the spread that the file names to 1."""
    x, _ = data
    scaling = json.loads(curve.__getstate__())["inputs"][0]
    near = np.linspace(-1, 1, 9)
    network = Network(1, 1, hidden=[6])
    scaled = (near - scaling["centre"]) / scaling["spread"]
    outputs = network.compute(curve.weights, scaled)[:, 0]
    assert_close(curve.predict(near), curve.shift[0] + 3 * curve.core[0] * outputs, 1e-12)


def test_intervals(curve: Curve, data: Data) -> None:
    """Against Student's t and the core: the band is t errors wide, the interval of a row has the core besides."""
    x, y = data
    band, rows = curve.interval(x, 0.9, "confidence"), curve.interval(x, 0.9)
    assert (band.prediction == curve.predict(x)).all()
    t = scipy.stats.t.ppf(0.95, curve.rows - curve.parameters)
    assert_close(band.upper - band.prediction, t * band.error, 1e-9)
    assert_close(rows.prediction - rows.lower, t * np.hypot(band.error, curve.core[0]), 1e-9)
    held = np.mean((rows.lower < y) & (y < rows.upper), where=np.arange(150) % 10 != 0)
    assert 0.83 < held < 0.97
    with pytest.raises(ValueError, match="none of confidence, prediction"):
        curve.interval(x, kind="credible")
    with pytest.raises(FitError, match="level"):
        curve.interval(x, 1.5)


def test_threads_change_no_bit(curve: Curve, data: Data) -> None:
    assert (robust_fit(*data, decay=0.1, threads=2).weights == curve.weights).all()


def test_a_model_file_keeps_every_bit(curve: Curve, data: Data, tmp_path: Path) -> None:
    x, _ = data
    path = tmp_path / "model.json"
    curve.save(path)
    loaded = Curve.load(path)
    assert (loaded.predict(x) == curve.predict(x)).all()
    assert (copy.deepcopy(loaded).weights == curve.weights).all()
    assert (loaded.columns, loaded.targets) == (curve.columns, curve.targets)


def test_files_that_are_no_model(tmp_path: Path, curve: Curve) -> None:
    with pytest.raises(OSError, match="nowhere"):
        Curve.load(tmp_path / "nowhere.json")
    broken = tmp_path / "broken.json"
    broken.write_text('{"version": 1}')
    with pytest.raises(FitError):
        Curve.load(broken)
    with pytest.raises(OSError):
        curve.save(tmp_path)


def test_progress_and_its_exceptions(data: Data) -> None:
    seen: list[Progress] = []

    def watch(progress: Progress) -> None:
        seen.append(progress)
        if progress.stage == "decay":
            raise KeyboardInterrupt

    with pytest.raises(KeyboardInterrupt):
        robust_fit(*data, progress=watch)
    assert seen[0].stage == "search" and seen[-1].stage == "decay"
    assert [p.evaluations for p in seen] == sorted(p.evaluations for p in seen)
    assert all(p.core > 0 for p in seen)


def test_bad_rows_are_named(data: Data) -> None:
    x, y = data
    with pytest.raises(FitError, match="row 8") as error:
        robust_fit(x, np.where(np.arange(150) == 7, np.nan, y))
    assert error.value.row == 7
    with pytest.raises(FitError, match="row 3") as error:
        robust_fit(np.where(np.arange(150) == 2, np.inf, x), y)
    assert error.value.row == 2


def test_shapes(data: Data, curve: Curve) -> None:
    x, y = data
    with pytest.raises(ValueError, match="y has the shape"):
        robust_fit(x, y[:-1])
    with pytest.raises(ValueError, match="x has the shape"):
        robust_fit(np.zeros((2, 2, 2)), y[:2])
    with pytest.raises(ValueError, match="names"):
        robust_fit(x, y, columns=["a", "b"])
    with pytest.raises(ValueError):
        curve.predict(np.zeros((4, 2)))
    assert curve.predict(np.zeros((0, 1))).shape == (0,)
    with pytest.raises(TypeError, match="real numbers"):
        robust_fit(x, ["a"] * 150)
