"""Fits a column of a CSV file robustly from all others, reports on it, and keeps the model.

    python3 fit_csv.py rows.csv y [model.json]

`vemkn-fit predict model.json new.csv` and `vemkn.fit.Curve.load("model.json").predict(x)` predict new rows.
"""

from __future__ import annotations

import csv
import sys

import numpy as np

from vemkn.fit import robust_fit

if len(sys.argv) not in (3, 4):
    sys.exit("usage: fit_csv.py ROWS.csv TARGET [MODEL.json]")
path, target, model = (sys.argv[1:] + ["model.json"])[:3]
with open(path, encoding="utf-8", newline="") as file:
    names, *rows = csv.reader(file)
if target not in names:
    sys.exit(f"{path}: no column {target!r} among {', '.join(names)}")
try:
    table = np.array(rows, dtype=float)
except ValueError as error:  # a cell that is no number, a row that is too short
    sys.exit(f"{path}: {error}")
at = names.index(target)
inputs = np.delete(table, at, axis=1)
curve = robust_fit(inputs, table[:, at], columns=names[:at] + names[at + 1 :], target=target)
curve.save(model)
print(f"core {curve.core[0]:.4g}, {curve.beyond} of {curve.rows} rows are outliers; model: {model}")
print(*curve.notes, sep="\n")
