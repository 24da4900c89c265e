"""A network but for its computing: life, settings, own weights, and the way to the library."""

from __future__ import annotations

import weakref
from operator import index
from types import TracebackType
from typing import Any, TypeVar

import numpy as np
from numpy.typing import ArrayLike

from ._arrays import Array, check_count, numbers, vector
from ._library import library
from ._shape import Shape

Self = TypeVar("Self", bound="NetworkBase")


class _Handle:
    """Owns a handle of the library, which is released with the last reference to this object.

    Every call holds a reference while it runs, so closing a network under a call of another thread
    is safe.
    """

    def __init__(self, text: str) -> None:
        encoded = text.encode("ascii")
        self.pointer: int = library.initVEMKNet(encoded, len(encoded))
        finalizer = weakref.finalize(self, library.releaseVEMKNet, self.pointer)
        # At exit a daemon thread may still compute, and the memory goes with the process.
        finalizer.atexit = False


class NetworkBase:
    """What `vemkn.Network` has besides its computing methods."""

    _shape: Shape
    _handle: _Handle | None
    _threads: int
    _batch: int
    _quiet: bool

    def _open(self, shape: Shape, threads: int, batch: int, quiet: bool) -> None:
        check_count("weights", [shape.numel])
        self._shape = shape
        self._handle = _Handle(shape.text)
        if library.vemk_numel(self._handle.pointer) != shape.numel:
            raise ValueError(f"the library makes no network of {shape.text!r}")
        self._set_parallel(threads, batch)
        self.quiet = quiet

    # ----------------------------------------------------------------------------- life and copies

    def close(self) -> None:
        """Lets go of the handle; calls after this one raise ValueError. May be called again."""
        self._handle = None

    @property
    def closed(self) -> bool:
        """Whether `close` has been called."""
        return self._handle is None

    def __enter__(self: Self) -> Self:
        self._live()
        return self

    def __exit__(
        self,
        kind: type[BaseException] | None,
        error: BaseException | None,
        trace: TracebackType | None,
    ) -> None:
        self.close()

    def __repr__(self) -> str:
        settings = f"threads={self._threads}, batch={self._batch}, quiet={self._quiet}"
        return f"Network.from_description({self.description!r}, {settings})"

    def __getstate__(self) -> dict[str, Any]:
        """The shape, the settings and the network's own weights."""
        return {
            "shape": self._shape,
            "settings": (self._threads, self._batch, self._quiet),
            "weights": self.weights,
        }

    def __setstate__(self, state: dict[str, Any]) -> None:
        self._open(state["shape"], *state["settings"])
        self.weights = state["weights"]

    # -------------------------------------------------------------------------- shape and settings

    @property
    def description(self) -> str:
        """The text that the library makes this network from."""
        return self._shape.text

    @property
    def numin(self) -> int:
        """Number of input columns."""
        return self._shape.numin

    @property
    def maxcols(self) -> int:
        """The most input columns that a call takes: the smaller of `numin` and the first of the `sizes`."""
        return int(library.vemk_maxcols(self._live().pointer))

    @property
    def numout(self) -> int:
        """Number of output columns."""
        return self._shape.numout

    @property
    def sizes(self) -> tuple[int, ...]:
        """Sizes of the layers' inputs."""
        return self._shape.sizes

    @property
    def nmult(self) -> int:
        """How often the hidden layers are applied."""
        return self._shape.nmult

    @property
    def activation(self) -> str:
        """Name of the activation."""
        return self._shape.activation

    @property
    def norm(self) -> str:
        """Name of the norm."""
        return self._shape.norm

    @property
    def numel(self) -> int:
        """Number of weights and biases."""
        return self._shape.numel

    @property
    def sigma(self) -> float:
        """Standard deviation of the likelihood's core, 1/3."""
        return float(library.vemk_logp_sigma(self._live().pointer))

    @property
    def threads(self) -> int:
        """Number of threads at most, 1 to 99999; no bit of a result depends on it."""
        return self._threads

    @threads.setter
    def threads(self, threads: int) -> None:
        self._set_parallel(threads, self._batch)

    @property
    def batch(self) -> int:
        """Rows of a slice."""
        return self._batch

    @batch.setter
    def batch(self, batch: int) -> None:
        self._set_parallel(self._threads, batch)

    def _set_parallel(self, threads: int, batch: int) -> None:
        threads, batch = index(threads), index(batch)
        if not 1 <= threads <= 99999:
            raise ValueError(f"threads: {threads} is not within 1 ... 99999")
        if not 1 <= batch < 2**31:
            raise ValueError(f"batch: {batch} is not a positive count of 31 bits")
        self._call("vemk_setpar", threads, batch)
        self._threads, self._batch = threads, batch

    @property
    def quiet(self) -> bool:
        """Whether results that are not finite come back instead of ending the process."""
        return self._quiet

    @quiet.setter
    def quiet(self, quiet: bool) -> None:
        quiet = bool(quiet)
        self._call("vemk_quiet", int(quiet))
        self._quiet = quiet

    # ------------------------------------------------------------------------------------- weights

    @property
    def weights(self) -> Array:
        """The network's own weights, shape (numel,), zeros at first. Getting and setting copies."""
        own = np.empty(self.numel)
        self._call("vemk_getweights", own, self.numel)
        return own

    @weights.setter
    def weights(self, w: ArrayLike) -> None:
        self._call("vemk_setweights", vector("weights", w, self.numel), self.numel)

    def split(self, w: ArrayLike) -> list[tuple[Array, Array]]:
        """Biases and weight matrix of every layer, as views into a flat vector.

        Parameters
        ----------
        w : array_like, shape (numel,)
            Weights, a gradient or a product.

        Returns
        -------
        list of (b, W)
            b has the shape (outputs,), W (inputs, outputs), so that a layer is ``H @ W + b``. They
            share the memory of `w` if it is an array of float64.
        """
        flat = numbers("w", w)
        if flat.shape != (self.numel,):
            raise ValueError(f"w has the shape {flat.shape}, needs ({self.numel},)")
        flat = np.asarray(flat, dtype=np.float64)
        layers = []
        at = 0
        for rows, columns in self._shape.layers():
            biases, at = flat[at : at + columns], at + columns
            matrix, at = flat[at : at + rows * columns], at + rows * columns
            layers.append((biases, matrix.reshape(rows, columns)))
        return layers

    # --------------------------------------------------------------------------------- the library

    def _live(self) -> _Handle:
        if self._handle is None:
            raise ValueError("the network is closed")
        return self._handle

    def _call(self, name: str, *arguments: Array | int | None) -> None:
        """Calls the library. Both the handle and the arrays live at least until it returns."""
        handle = self._live()
        raw = [each.ctypes.data if isinstance(each, np.ndarray) else each for each in arguments]
        _check_status(name, getattr(library, name)(handle.pointer, *raw))


def _check_status(name: str, status: int) -> None:
    """1 is no refusal: not all results are finite, which whoever reads them will see."""
    if status < 0:
        raise ValueError(f"{name}: the library refused the call, see standard error")
