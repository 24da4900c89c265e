"""From anything array-like to what the library reads: contiguous arrays of doubles.

Nothing is copied that is such an array already. Every function raises ValueError for a wrong shape
and TypeError for what is not numbers, and does so before it copies.
"""

from __future__ import annotations

from collections.abc import Sequence
from typing import Any

import numpy as np
from numpy.typing import ArrayLike, NDArray

Array = NDArray[np.float64]

# The library counts in 32 bits.
LIMIT = 2**32


def numbers(name: str, values: ArrayLike) -> NDArray[Any]:
    """An array of real numbers, of whatever type and layout."""
    if isinstance(values, np.ma.MaskedArray) and np.any(values.mask):
        raise ValueError(f"{name} has masked values: leave such rows out, or fill them")
    array = np.asarray(values)
    if array.dtype.kind in "biuf" or array.size == 0:
        return array
    if array.dtype.kind == "O":
        return array.astype(np.float64)
    raise TypeError(f"{name} holds values of type {array.dtype}, not real numbers")


def contiguous(array: NDArray[Any]) -> Array:
    """The same array if the library can read it, else a copy."""
    return np.require(array, np.float64, ["C_CONTIGUOUS", "ALIGNED"])


def vector(name: str, values: ArrayLike, length: int) -> Array:
    """Shape (length,)."""
    array = numbers(name, values)
    if array.shape != (length,):
        raise ValueError(f"{name} has the shape {array.shape}, needs ({length},)")
    return contiguous(array)


def matrix(name: str, values: ArrayLike, columns: int, *, fewer: bool = False) -> Array:
    """Shape (rows, columns), or fewer columns if that is allowed. A vector counts as one column
    where there is one column."""
    array = numbers(name, values)
    if array.ndim == 1 and columns == 1:
        array = array[:, np.newaxis]
    fits = array.ndim == 2 and (array.shape[1] == columns or fewer and array.shape[1] < columns)
    if not fits:
        most = "at most " if fewer else ""
        raise ValueError(f"{name} has the shape {array.shape}, needs (rows, {most}{columns})")
    if array.shape[0] >= LIMIT:
        raise ValueError(f"{name} has {array.shape[0]} rows, the library counts to {LIMIT - 1}")
    return contiguous(array)


def tangents(name: str, values: ArrayLike, length: int) -> Array:
    """Shape (length, k): a column for each tangent; a vector counts as one."""
    array = numbers(name, values)
    if array.ndim == 1:
        array = array[:, np.newaxis]
    if array.ndim != 2 or array.shape[0] != length:
        raise ValueError(
            f"{name} has the shape {np.shape(values)}, needs ({length},) or ({length}, tangents)"
        )
    check_count(name, array.shape)
    return contiguous(array)


def cotangents(name: str, values: ArrayLike, shape: tuple[int, int]) -> Array:
    """Shape (k, rows, columns); (k, rows) where there is one column."""
    array = numbers(name, values)
    if array.ndim == 2 and shape[1] == 1:
        array = array[:, :, np.newaxis]
    if array.ndim != 3 or array.shape[1:] != shape:
        raise ValueError(
            f"{name} has the shape {np.shape(values)}, needs (cotangents, {shape[0]}, {shape[1]})"
        )
    check_count(name, array.shape)
    return contiguous(array)


def check_count(name: str, shape: Sequence[int]) -> None:
    """Refuses what the library would refuse as too large, and any extent that it cannot count."""
    count = 1
    for extent in shape:
        count *= max(extent, 1)
    if count >= LIMIT:
        raise ValueError(f"{name}: {count} values, the library takes fewer than {LIMIT}")
