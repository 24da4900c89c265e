"""Writes tests/testthat/helper-fixture.R: what Python's front end of the same library says of a few rows, as hexadecimal numbers.

    PYTHONPATH=bindings/python python3 bindings/r/tests/python/fixture.py >bindings/r/tests/testthat/helper-fixture.R

To be run again when the library's digits change. The rows are those of helper-fit.R: sums and products that are exact in
binary, so that both languages have the same doubles.
"""

import numpy as np
from vemkn.fit import Curve, robust_fit


def rows() -> tuple[np.ndarray, np.ndarray]:
    i = np.arange(1, 121)
    a = ((i * 37) % 120) / 32 - 2
    b = ((i * 53) % 97) / 64
    y = 3 + a - a * a * a / 4 + b / 2 + ((i * 71) % 23 - 11) / 128
    y[i % 10 == 0] += 40
    return np.column_stack([a, b]), y


def written(name: str, values: object) -> str:
    numbers = [float(value).hex() for value in np.ravel(values)]
    lines = [", ".join(numbers[at : at + 4]) for at in range(0, len(numbers), 4)]
    return f"    {name} = c(" + (",\n" + " " * (len(name) + 9)).join(lines) + ")"


def members(curve: Curve) -> str:
    new = np.array([[-1.5, 0.25], [0.0, 0.5], [1.25, 1.0]])
    interval = curve.interval(new, 0.9, "prediction")
    return ",\n".join(
        [
            written("weights", curve.weights),
            written("core", curve.core),
            written("shift", curve.shift),
            written("decay", curve.decay),
            written("prediction", interval.prediction),
            written("error", interval.error),
            written("lower", interval.lower),
            written("upper", interval.upper),
        ]
    )


x, y = rows()
print("# Written by tests/python/fixture.py.")
print("fixture <- list(\n" + members(robust_fit(x, y, hidden=4, seed=5, starts=2)) + "\n)")
