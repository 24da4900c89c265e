#!/usr/bin/env python3
"""Draws a robust fit and a least squares fit of flight delays over the hour of departure.

    plot_fit.py FLIGHT_DELAYS.csv PICTURE.png
"""

from __future__ import annotations

import sys
from collections.abc import Callable
from typing import Any

import matplotlib
import numpy as np
from numpy.typing import NDArray
from vemkn import Network
from vemkn.optimize import Problem, least_squares
from vemkn.sklearn import VemknRegressor

matplotlib.use("Agg")
import matplotlib.pyplot as plt  # noqa: E402  the choice of a backend comes first

Array = NDArray[np.float64]
Predictor = Callable[[Array], Array]


def inputs(hour: Array, day: Array, distance: Array) -> Array:
    """Hour and day as sine and cosine, so that an end meets its beginning."""
    turn, season = 2 * np.pi * hour / 24, 2 * np.pi * day / 365
    columns = [np.sin(turn), np.cos(turn), np.sin(season), np.cos(season), distance / 1000]
    return np.column_stack(columns)


def robust_fit(x: Array, y: Array) -> VemknRegressor:
    model = VemknRegressor().fit(x, y)
    print(f"robust: core {model.core_[0]:.1f} min, {model.outliers_.mean():.1%} of flights beyond six of it")
    return model


def least_squares_fit(x: Array, y: Array, core: float) -> Predictor:
    """The same kind of network, with targets scaled alike, by SciPy's trust region."""
    network = Network(x.shape[1], 1, hidden=[6])
    unit, shift = 3 * core, y.min() - 3 * core
    problem = Problem(network, x, (y - shift) / unit)
    start = 0.5 * np.random.default_rng(1).standard_normal(network.numel)
    found = least_squares(problem, start, dense=True, ftol=1e-6)
    print(f"least squares: {found.message} {found.nfev} evaluations")
    return lambda at: np.asarray(network.compute(found.x, at)[:, 0] * unit + shift)


def over_the_hours(predict: Predictor, hours: Array, data: Any) -> Array:
    """At each hour the average over what the other inputs hold in some of the data."""
    some = data[::25]
    at_all = [np.full(len(some), hour) for hour in hours]
    others = some["day_of_year"], some["distance_miles"]
    return np.array([predict(inputs(at, *others)).mean() for at in at_all])


def medians(hour: Array, y: Array) -> tuple[Array, Array]:
    """Of the delays in every hour with at least 20 flights."""
    slices = [(k + 0.5, y[hour.astype(int) % 24 == k]) for k in range(24)]
    kept = [(middle, np.median(part)) for middle, part in slices if len(part) >= 20]
    return np.array(kept)[:, 0], np.array(kept)[:, 1]


def main(source: str, picture: str) -> None:
    data: Any = np.genfromtxt(source, delimiter=",", names=True)
    x = inputs(data["hour"], data["day_of_year"], data["distance_miles"])
    y = data["delay_min"]
    robust = robust_fit(x, y)
    squares = least_squares_fit(x, y, robust.core_[0])
    hours = np.linspace(0, 24, 97)

    figure, axes = plt.subplots(figsize=(7.2, 4.0), layout="constrained")
    axes.plot(data["hour"], y, ".", color="0.8", markersize=2, zorder=0, label="flights")
    axes.plot(*medians(data["hour"], y), "ko", markersize=4, label="medians of an hour")
    axes.plot(hours, over_the_hours(squares, hours, data), "C1--", label="least squares")
    axes.plot(hours, over_the_hours(robust.predict, hours, data), "C0", label="robust likelihood")
    axes.set(xlim=(0, 24), ylim=(-40, 100), xticks=range(0, 25, 4))
    axes.set(xlabel="hour of departure", ylabel="arrival delay [min]")
    axes.legend(loc="upper center", framealpha=1)
    figure.savefig(picture, dpi=100)


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    main(sys.argv[1], sys.argv[2])
