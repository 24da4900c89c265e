"""Brings data to where the likelihood and the activations want them, as vemkn-fit does."""

from __future__ import annotations

from dataclasses import dataclass

import numpy as np
from numpy.typing import ArrayLike

from ._arrays import Array

# Leaves room below pi/2, which atan reaches for infinite arguments only.
_ATAN_REACH = 1.4
# 1 / the upper quartile of a standard normal distribution.
_MAD_TO_DEVIATION = 1.482602218505602


@dataclass(frozen=True)
class InputMap:
    """Each column to mean 0 and standard deviation 1."""

    mean: Array
    deviation: Array

    @staticmethod
    def of(x: Array) -> InputMap:
        mean, deviation = x.mean(axis=0), x.std(axis=0)
        # A column of one value maps to 0.
        constant = deviation <= 1e-12 * np.abs(mean)
        return InputMap(mean, np.where(constant, np.maximum(1.0, np.abs(mean)), deviation))

    def apply(self, x: Array) -> Array:
        return np.asarray((x - self.mean) / self.deviation)


@dataclass(frozen=True)
class TargetMap:
    """Each column y to (y - shift) / (3 core): the likelihood's core has standard deviation 1/3.

    `core` is the standard deviation that counts as normal scatter, in units of y.
    """

    core: Array
    shift: Array

    @staticmethod
    def of(
        x: Array, y: Array, activation: str, core: ArrayLike | None, shift: ArrayLike | None
    ) -> TargetMap:
        """The activation acts on the output layer too, so its range says where targets have to lie.

        - softplus, relu: the lowest y maps to 1, where softplus is not yet flat;
        - atan: the middle of y maps to 0, and a core that was not given is enlarged until all of y
          fits into the range;
        - id: the median maps to 0.

        Parameters
        ----------
        x : ndarray, shape (rows, numin)
            The network's inputs, after their map.
        y : ndarray, shape (rows, numout)
            Targets as they are.

        Raises
        ------
        ValueError
            For given values that do not fit y or the range of atan.
        """
        low, high = y.min(axis=0), y.max(axis=0)
        if core is None:
            cores = np.array([default_core(x, column) for column in y.T])
            if activation == "atan":
                cores = np.maximum(cores, (high - low) / (2 * _ATAN_REACH * 3))
        else:
            cores = _for_each("core", core, y.shape[1])
            if not (cores > 0).all():
                raise ValueError(f"core must be positive, is {cores}")
        if shift is not None:
            shifts = _for_each("shift", shift, y.shape[1])
        elif activation == "atan":
            shifts = 0.5 * (low + high)
        elif activation == "id":
            shifts = np.median(y, axis=0)
        else:
            shifts = low - 3 * cores
        target_map = TargetMap(cores, shifts)
        if activation == "atan" and np.abs(target_map.apply(y)).max() > np.pi / 2:
            raise ValueError(
                "the targets do not fit into the range of atan, (-pi/2, pi/2): take a larger core, "
                "another shift or another activation"
            )
        return target_map

    def apply(self, y: Array) -> Array:
        return np.asarray((y - self.shift) / (3 * self.core))

    def undo(self, mapped: Array) -> Array:
        return np.asarray(mapped * (3 * self.core) + self.shift)


def default_core(x: Array, y: Array) -> float:
    """A core scale for one target about which nothing is said.

    It is the median absolute deviation, scaled to a Gaussian, of what a least-absolute-deviations
    line leaves of y, and at least a hundredth of that of y itself. It errs to the large side, by as
    much as the network explains better than a line. That is the harmless side: too large a core
    brings the fit closer to least squares, too small a core lets it ignore good data.
    """
    deviation = float(y.std())
    if deviation <= 1e-12 * float(np.abs(y).max(initial=0.0)):
        return 1.0  # one value only: no scatter to measure, and none to fit
    own = _mad_scale(y) or deviation
    return max(_mad_scale(_residuals_of_robust_line(x, y)), 0.01 * own)


def _residuals_of_robust_line(x: Array, y: Array) -> Array:
    """By iteratively reweighted least squares."""
    design = np.column_stack([np.ones(len(x)), x])
    floor = 1e-6 * y.std()
    weight = np.ones(len(y))
    residual = y
    for _ in range(30):
        weighted = design * weight[:, np.newaxis]
        normal = design.T @ weighted
        # Inputs that depend on each other make this singular; a trace of ridge picks one solution.
        normal[np.diag_indices_from(normal)] += 1e-10 * np.trace(normal)
        residual = y - design @ np.linalg.solve(normal, weighted.T @ y)
        weight = 1 / np.maximum(np.abs(residual), floor)
    return residual


def _mad_scale(values: Array) -> float:
    return float(_MAD_TO_DEVIATION * np.median(np.abs(values - np.median(values))))


def _for_each(name: str, values: ArrayLike, columns: int) -> Array:
    array = np.asarray(values, dtype=np.float64)
    if array.shape not in ((), (1,), (columns,)) or not np.isfinite(array).all():
        raise ValueError(f"{name} must be one number, or one for each of {columns} targets")
    return np.broadcast_to(array, (columns,)).copy()
