"""A problem of the comparison, the library that answers it, and plain NumPy evaluators to check against."""

from __future__ import annotations

import ctypes
from dataclasses import dataclass
from pathlib import Path
from typing import Callable, Protocol

import numpy as np
from numpy.typing import NDArray

Array = NDArray[np.float64]
Answer = list[Array]

OPERATIONS: dict[str, int] = {"obj": 0, "g": 0, "Hv1": 1, "Hv8": 8, "Jv8": 8, "vJ_vec8": 8}


@dataclass
class Problem:
    """Numbers of one network; weights and results in the flat order of vemkn.h."""

    text: bytes
    activation: str
    widths: list[int]
    w: Array
    x: Array
    y: Array
    numbers: Array  # tangents or cotangents, as many as asked for from the front

    @property
    def layers(self) -> list[tuple[Array, Array]]:
        """Biases and weights (inputs x outputs) of every layer."""
        return self.split(self.w)

    def split(self, flat: Array) -> list[tuple[Array, Array]]:
        parts, at = [], 0
        for k, n in zip(self.widths, self.widths[1:]):
            parts.append((flat[at : at + n], flat[at + n : at + n + k * n].reshape(k, n)))
            at += n + k * n
        return parts

    def tangents(self, count: int) -> Array:
        """One tangent a row."""
        return np.ascontiguousarray(self.numbers[: self.w.size * count].reshape(-1, count).T)

    def cotangents(self, count: int) -> Array:
        """One cotangent a block of the shape of the targets."""
        return self.numbers[: self.y.size * count].reshape(count, *self.y.shape)


def read_problem(directory: Path, activation: str) -> Problem:
    def numbers(name: str) -> Array:
        return np.fromfile(directory / f"{name}.f64")

    text = (directory / "text.txt").read_bytes().strip()
    words = text.split()
    widths = [int(word) for word in words[5 : 5 + int(words[2])]] + [int(words[1])]
    x, y = numbers("x").reshape(-1, widths[0]), numbers("y").reshape(-1, widths[-1])
    return Problem(text, activation, widths, numbers("w"), x, y, numbers("tangents"))


class Contestant(Protocol):
    """Answers one operation on one problem."""

    name: str
    call: Callable[[], object]  # what is timed

    def answer(self) -> Answer:
        """What call computed, in the layout of the library."""

    def expected(self) -> Answer | None:
        """What it is checked against: None for the library's answer."""


class Library:
    """libvemkn on one thread, called through ctypes with everything prepared."""

    name = "library_ctypes"

    def __init__(self, path: Path, problem: Problem, operation: str) -> None:
        self.library = ctypes.CDLL(str(path))
        self.library.initVEMKNet.restype = ctypes.c_void_p
        self.net = ctypes.c_void_p(self.library.initVEMKNet(problem.text, len(problem.text)))
        self.library.vemk_setpar(self.net, 1, 32)
        self.result = self._blank(problem, operation)
        self.call = self._prepare(problem, operation)

    @staticmethod
    def _blank(p: Problem, operation: str) -> Answer:
        count, nw, elements = OPERATIONS[operation], p.w.size, p.y.size
        sizes = {
            "obj": [1],
            "g": [1, nw],
            "Hv1": [1, nw, nw * count],
            "Hv8": [1, nw, nw * count],
            "Jv8": [elements, elements * count],
            "vJ_vec8": [elements, nw * count],
        }[operation]
        return [np.zeros(size) for size in sizes]

    def _prepare(self, p: Problem, operation: str) -> Callable[[], object]:
        def pointer(array: Array) -> ctypes.c_void_p:
            return ctypes.c_void_p(array.ctypes.data)

        count = OPERATIONS[operation]
        function = getattr(self.library, "vemk_" + operation.rstrip("0123456789"))
        tangents = [pointer(p.numbers), ctypes.c_uint(count)] if count else []
        shape = [ctypes.c_uint(n) for n in (len(p.x), p.x.shape[1], p.y.shape[1])]
        arguments = [
            *(self.net, pointer(p.w), ctypes.c_uint(p.w.size)),
            *tangents,
            *(pointer(p.x), pointer(p.y), *shape),
            *(pointer(part) for part in self.result),
        ]
        return lambda: function(*arguments)

    def answer(self) -> Answer:
        self.call()
        return self.result

    def expected(self) -> Answer | None:
        return None
