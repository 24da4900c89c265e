"""The program that the first page shows: a CSV file in, a report and a model out."""

from __future__ import annotations

import subprocess
import sys
from pathlib import Path

import numpy as np
from vemkn.fit import Curve

PROGRAM = Path(__file__).resolve().parent.parent / "fit_csv.py"


def run(*arguments: object) -> subprocess.CompletedProcess[str]:
    command = [sys.executable, str(PROGRAM), *map(str, arguments)]
    return subprocess.run(command, capture_output=True, text=True, timeout=300)


def test_fits_a_column_from_all_others(tmp_path: Path) -> None:
    a = np.linspace(-2, 2, 60)
    y = 5 + a**2 + 0.05 * np.cos(40 * a)
    y[::10] += 30
    rows, model = tmp_path / "rows.csv", tmp_path / "model.json"
    rows.write_text("y,a\n" + "".join(f"{y[i]:.6f},{a[i]:.6f}\n" for i in range(60)))
    done = run(rows, "y", model)
    assert done.returncode == 0, done.stderr
    assert "6 of 60 rows are outliers" in done.stdout
    curve = Curve.load(model)
    assert curve.columns == ("a",) and curve.targets == ("y",)
    assert abs(curve.predict(np.array([[1.0]])).item() - 6) < 0.2


def test_says_what_is_wrong_with_a_file(tmp_path: Path) -> None:
    rows = tmp_path / "rows.csv"
    rows.write_text("y,a\n1,2\n3,abc\n")
    assert "no column 'z' among y, a" in run(rows, "z").stderr
    assert "'abc'" in run(rows, "y").stderr
    assert "usage" in run(rows).stderr
