"""The network once more, in plain NumPy, from its description in the header alone.

All of it also works for complex weights, and every step but the kinks is analytic. So the gradient
of anything is the imaginary part of its value at w + ih e, over h, with no cancellation: h can be
so small that nothing but rounding is left.
"""

from __future__ import annotations

from collections.abc import Callable
from typing import Any

import numpy as np
from numpy.typing import NDArray
from vemkn import Network

Matrix = NDArray[Any]

ACTIVATIONS: dict[str, Callable[[Matrix], Any]] = {
    "softplus": lambda z: np.log(1 + np.exp(z)),
    "atan": np.arctan,
    "relu": lambda z: np.where(z.real > 0, z, 0.0),
    "id": lambda z: z,
}
SCALE = 0.0004785973257525766


def outputs(network: Network, w: Matrix, x: Matrix) -> Any:
    """Hidden layers, nmult times in a chain; all passes side by side into the last layer."""
    act = ACTIVATIONS[network.activation]
    layers = []
    at = 0
    shapes = [*zip(network.sizes, network.sizes[1:])]
    for rows, columns in [*shapes, (network.sizes[-1] * network.nmult, network.numout)]:
        b = w[at : at + columns]
        at += columns
        layers.append((b, w[at : at + rows * columns].reshape(rows, columns)))
        at += rows * columns
    assert at == len(w)
    passes = []
    h = x
    for _ in range(network.nmult):
        for b, matrix in layers[:-1]:
            h = act(h @ matrix + b)
        passes.append(h)
    b, matrix = layers[-1]
    return act(np.hstack(passes) @ matrix + b)


def element_norm(network: Network, r: Matrix) -> Any:
    """Minus the log density, plus that of the core at zero."""
    if network.norm == "sum":
        return r
    at_zero = np.log(3 / np.sqrt(2 * np.pi))
    core = 4.5 * r**2
    tail = np.log(np.pi * SCALE * (1 + (r / SCALE) ** 2)) + at_zero
    return np.where(np.abs(r.real) < 2, core, tail)


def objective_each(network: Network, w: Matrix, x: Matrix, y: Matrix) -> Any:
    return element_norm(network, outputs(network, w, x) - y)


def objective(network: Network, w: Matrix, x: Matrix, y: Matrix) -> Any:
    return objective_each(network, w, x, y).mean()


def jacobian_of(function: Callable[[Matrix], Any], w: Matrix) -> Matrix:
    """Derivatives of a function of the weights, with the weights as last axis."""
    h = 1e-30
    columns = [np.imag(function(w + 1j * h * unit)) / h for unit in np.eye(len(w))]
    return np.stack(columns, axis=-1)


def gradient(network: Network, w: Matrix, x: Matrix, y: Matrix) -> Any:
    return jacobian_of(lambda at: objective(network, at, x, y), w)


def assert_close(actual: Any, expected: Any, tolerance: float) -> None:
    """Up to a tolerance that is relative for numbers above 1 and absolute for those below."""
    np.testing.assert_allclose(actual, expected, rtol=tolerance, atol=tolerance)
