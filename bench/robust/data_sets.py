"""Data sets that come with Debian's packages of R and scikit-learn, and how they are contaminated."""

import csv
import io
import subprocess

import numpy
import sklearn.datasets

# Name in R, what is predicted, and from which columns; rows with a missing cell are left out.
OF_R = {
    "mcycle": ("MASS::mcycle", "accel", ["times"]),
    "airquality": ("datasets::airquality", "Ozone", ["Solar.R", "Wind", "Temp", "Month", "Day"]),
    "boston": ("MASS::Boston", "medv", None),
    "quakes": ("datasets::quakes", "stations", ["lat", "long", "depth", "mag"]),
}

CONDITIONS = ("clean", "10 % above", "20 % above", "20 % both sides", "10 % in x")


def from_r(expression, target, inputs):
    text = subprocess.run(
        ["Rscript", "-e", f"write.csv(na.omit({expression}), row.names = FALSE)"],
        check=True, capture_output=True, text=True).stdout
    rows = list(csv.DictReader(io.StringIO(text)))
    inputs = inputs or [name for name in rows[0] if name != target]
    table = numpy.array([[float(row[name]) for name in [*inputs, target]] for row in rows])
    return table[:, :-1], table[:, -1]


def load(name):
    """Inputs, rows x columns, and targets."""
    if name == "diabetes":
        return sklearn.datasets.load_diabetes(return_X_y=True, scaled=False)
    return from_r(*OF_R[name])


NAMES = (*OF_R, "diabetes")


def deviation(values):
    """The standard deviation of a normal distribution with the same quartiles, or their own one where these are equal."""
    low, high = numpy.quantile(values, [0.25, 0.75])
    return (high - low) / 1.349 or values.std()


def contaminated(x, y, condition, seed):
    """Rows to fit: a share of the targets moved by 3 to 10 deviations of the targets, or of the rows one input by 10 to 20 of its own."""
    if condition == "clean":
        return x, y
    random = numpy.random.default_rng(seed)
    x, y = x.copy(), y.copy()
    share = float(condition.split()[0]) / 100
    rows = random.choice(len(y), round(share * len(y)), replace=False)
    if condition.endswith("in x"):
        columns = random.integers(x.shape[1], size=len(rows))
        spreads = numpy.array([deviation(column) for column in x.T])
        x[rows, columns] += random.uniform(10, 20, len(rows)) * spreads[columns]
    else:
        sign = random.choice([-1, 1], len(rows)) if condition.endswith("both sides") else 1
        y[rows] += sign * random.uniform(3, 10, len(rows)) * deviation(y)
    return x, y


def folds(rows, number, seed):
    """Rows held out, fold by fold."""
    return numpy.array_split(numpy.random.default_rng(seed).permutation(rows), number)
