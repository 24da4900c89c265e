"""Fits a column of a CSV file robustly from all others, reports on it, and keeps the model.

    python3 fit_csv.py rows.csv y [model.json]

The model takes the place of a file of its name. `vemkn-fit predict model.json new.csv` and
`vemkn.fit.Curve.load("model.json").predict(x)` predict new rows.
"""

from __future__ import annotations

import csv
import sys

import numpy as np

from vemkn.fit import FitError, robust_fit

if len(sys.argv) not in (3, 4):
    sys.exit("usage: fit_csv.py ROWS.csv TARGET [MODEL.json]")
path, target, model = (sys.argv[1:] + ["model.json"])[:3]
try:
    with open(path, encoding="utf-8-sig", newline="") as file:
        names, *rows = [row for row in csv.reader(file) if row] or [[]]
    if target not in names:
        sys.exit(f"{path}: no column {target!r} among {', '.join(names)}")
    if not rows or len(names) < 2:
        sys.exit(f"{path}: no rows, or no column beside {target!r}")
    table = np.array(rows, dtype=float)
    at = names.index(target)
    inputs = np.delete(table, at, axis=1)
    curve = robust_fit(inputs, table[:, at], columns=names[:at] + names[at + 1 :], target=target)
    curve.save(model)
except (OSError, ValueError, FitError) as error:  # among them a cell that is no number and a row that is too short
    sys.exit(f"{path}: {error}")
print(f"core {curve.core[0]:.4g}, {curve.beyond} of {curve.rows} rows are outliers; model: {model}")
print(*curve.notes, sep="\n")
