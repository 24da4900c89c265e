"""Robust regression by libvemknfit, and its model files.

The same doubles, options and version give the same digits here, in `vemkn-fit --method robust` and
in C; each reads the others' model files.
"""

from __future__ import annotations

import ctypes
import os
import weakref
from collections.abc import Callable, Sequence
from operator import index
from typing import Any, NamedTuple

import numpy as np
from numpy.typing import ArrayLike

from . import _fit_library as c
from ._arrays import Array, contiguous, numbers

__all__ = ["Curve", "FitError", "Interval", "Progress", "robust_fit"]

_STAGES = ("search", "decay", "settle")


class FitError(ValueError):
    """Data, a file or a model that cannot be used. `row` is the index of the row at fault, or None."""

    def __init__(self, message: str, row: int | None = None) -> None:
        super().__init__(message)
        self.row = row


class Interval(NamedTuple):
    """Predictions, the standard errors of the curve, and the ends of intervals, of shape (rows,)."""

    prediction: Array
    error: Array
    lower: Array
    upper: Array


class Progress(NamedTuple):
    """How far a fit is: its stage ("search", "decay" or "settle"), the start of a search from 1 on,
    evaluations so far, and the core, in units of y, and the objective of the curve at hand."""

    stage: str
    start: int
    evaluations: int
    core: float
    objective: float


class _Progress(ctypes.Structure):
    _fields_ = [
        ("stage", ctypes.c_int),
        ("start", ctypes.c_int),
        ("evaluations", ctypes.c_uint64),
        ("core", ctypes.c_double),
        ("objective", ctypes.c_double),
    ]


def _check(code: int) -> None:
    if code == c.OK:
        return
    message = c.library.vemkn_fit_message().decode()
    if code == c.MEMORY:
        raise MemoryError(message)
    if code == c.FILE:
        raise OSError(message)
    row = c.library.vemkn_fit_row()
    raise FitError(message, None if row < 0 else row)


class Curve:
    """A fitted curve: what `robust_fit` gives and model files hold.

    Only read once it is made, so any number of threads may use it. It can be pickled and copied.
    """

    def __init__(self, pointer: ctypes.c_void_p) -> None:
        """Owns the fit that the library gave; called by this module only."""
        self._pointer = pointer
        weakref.finalize(self, c.library.vemkn_fit_free, pointer).atexit = False

    @classmethod
    def load(cls, path: str | os.PathLike[str]) -> Curve:
        """Reads a model file, whoever wrote it.

        Raises OSError for a file that cannot be read, FitError for one that is no model.
        """
        pointer = ctypes.c_void_p()
        _check(c.library.vemkn_fit_load(os.fsencode(path), ctypes.byref(pointer)))
        return cls(pointer)

    def save(self, path: str | os.PathLike[str]) -> None:
        """Writes a model file: beside the place first, then renamed. Raises OSError."""
        _check(c.library.vemkn_fit_save(self._pointer, os.fsencode(path)))

    def __getstate__(self) -> bytes:
        length = ctypes.c_size_t()
        _check(c.library.vemkn_fit_write(self._pointer, None, 0, ctypes.byref(length)))
        text = ctypes.create_string_buffer(length.value + 1)
        _check(
            c.library.vemkn_fit_write(self._pointer, text, len(text), ctypes.byref(length))
        )
        return text.raw[: length.value]

    def __setstate__(self, text: bytes) -> None:
        pointer = ctypes.c_void_p()
        _check(c.library.vemkn_fit_read(text, len(text), ctypes.byref(pointer)))
        Curve.__init__(self, pointer)

    def predict(self, x: ArrayLike) -> Array:
        """What the curve says of rows.

        Parameters
        ----------
        x : array_like, shape (rows, columns)
            Finite. A vector counts as one column where the curve has one.

        Returns
        -------
        ndarray, shape (rows,), or (rows, targets) where a model has several
        """
        rows = _matrix("x", x)
        targets = len(self.targets)
        predictions = np.empty((len(rows), targets))
        _check(
            c.library.vemkn_fit_predict(
                self._pointer, rows.ctypes.data, *rows.shape, predictions.ctypes.data
            )
        )
        return predictions[:, 0] if targets == 1 else predictions

    def interval(
        self, x: ArrayLike, level: float = 0.95, kind: str = "prediction"
    ) -> Interval:
        """What the curve says of rows, and how far it may be off.

        Parameters
        ----------
        x : array_like, shape (rows, columns)
        level : float
            Between 0 and 1.
        kind : {"prediction", "confidence"}
            Where a new row lies that is no outlier, or where the curve does.

        Raises
        ------
        FitError
            Also where the model has no standard errors: see `vemkn_fit_interval`.
        """
        rows = _matrix("x", x)
        if kind not in c.KINDS:
            raise ValueError(f"kind: {kind!r} is none of {', '.join(c.KINDS)}")
        arrays = Interval(*np.empty((4, len(rows))))
        _check(
            c.library.vemkn_fit_interval(
                self._pointer,
                rows.ctypes.data,
                *rows.shape,
                c.KINDS[kind],
                level,
                *[array.ctypes.data for array in arrays],
            )
        )
        return arrays

    def _texts(self, count: str, each: str) -> tuple[str, ...]:
        number = getattr(c.library, f"vemkn_fit_{count}")(self._pointer)
        get = getattr(c.library, f"vemkn_fit_{each}")
        return tuple(get(self._pointer, i).decode() for i in range(number))

    def _of_targets(self, name: str) -> Array:
        get = getattr(c.library, f"vemkn_fit_{name}")
        return np.array([get(self._pointer, i) for i in range(len(self.targets))])

    @property
    def columns(self) -> tuple[str, ...]:
        """Names of the input columns."""
        return self._texts("columns", "column")

    @property
    def targets(self) -> tuple[str, ...]:
        """Names of the targets; a robust fit has one."""
        return self._texts("targets", "target")

    @property
    def core(self) -> Array:
        """Standard deviation of the normal scatter of each target, in its units."""
        return self._of_targets("core")

    @property
    def shift(self) -> Array:
        """What an output of zero stands for: a prediction is shift + 3 core output."""
        return self._of_targets("shift")

    @property
    def decay(self) -> float:
        """The decay that was given or chosen."""
        return float(c.library.vemkn_fit_decay(self._pointer))

    @property
    def objective(self) -> float:
        """Summed negative log-likelihood, less that of residuals of zero, and what the weights cost."""
        return float(c.library.vemkn_fit_objective(self._pointer))

    @property
    def settled(self) -> bool:
        """Whether the fit came to a minimum, or well within its standard errors of one, with the core of its own residuals."""
        return bool(c.library.vemkn_fit_settled(self._pointer))

    @property
    def rows(self) -> int:
        """Number of rows that were fitted."""
        return int(c.library.vemkn_fit_rows(self._pointer))

    @property
    def beyond(self) -> int:
        """How many of them lie beyond six cores: outliers."""
        return int(c.library.vemkn_fit_beyond(self._pointer))

    @property
    def parameters(self) -> float:
        """How many parameters the rows have determined; NaN for the model of another fit."""
        return float(c.library.vemkn_fit_parameters(self._pointer))

    @property
    def hidden(self) -> tuple[int, ...]:
        """Widths of the hidden layers."""
        layers = c.library.vemkn_fit_layers(self._pointer)
        return tuple(c.library.vemkn_fit_width(self._pointer, i) for i in range(layers))

    @property
    def activation(self) -> str:
        """Activation of every layer."""
        return str(c.library.vemkn_fit_activation(self._pointer).decode())

    @property
    def method(self) -> str:
        """How it was fitted: "robust", or a word of the program that wrote the model."""
        return str(c.library.vemkn_fit_method(self._pointer).decode())

    @property
    def weights(self) -> Array:
        """A copy of the weights, in the library's flat order, of scaled inputs and outputs."""
        count = ctypes.c_size_t()
        weights = c.library.vemkn_fit_weights(self._pointer, ctypes.byref(count))
        return np.ctypeslib.as_array(weights, (count.value,)).copy()

    @property
    def notes(self) -> tuple[str, ...]:
        """What a person should know before trusting the fit."""
        return self._texts("notes", "note")


class _Watch:
    """Called after every evaluation. An exception, that of an interrupt too, ends the fit and is raised when it has
    ended: it must not leave through the library."""

    def __init__(self, progress: Callable[[Progress], object] | None) -> None:
        self._progress = progress
        self.failure: BaseException | None = None
        self.callback = c.WATCH(self._call)

    def _call(self, progress: int, host: int | None) -> int:
        try:
            if self._progress is not None:
                p = _Progress.from_address(progress)
                stage = _STAGES[p.stage] if p.stage < len(_STAGES) else ""
                self._progress(Progress(stage, p.start, p.evaluations, p.core, p.objective))
        except BaseException as failure:
            self.failure = failure
            return 1
        return 0


def robust_fit(
    x: ArrayLike,
    y: ArrayLike,
    *,
    hidden: Sequence[int] | int = (6,),
    activation: str = "softplus",
    core: float | None = None,
    decay: float | None = None,
    seed: int = 1,
    starts: int = 3,
    threads: int = 1,
    columns: Sequence[str] | None = None,
    target: str = "y",
    progress: Callable[[Progress], object] | None = None,
) -> Curve:
    """Robust regression of y on the columns of x by a small network.

    Residuals within six standard deviations of normal scatter, the *core*, count as Gaussian; those
    beyond as the tail of a Cauchy density. Core, shift and decay are estimated with the weights, so
    that up to 30 % of gross outliers leave the curve nearly where it was.

    Parameters
    ----------
    x : array_like, shape (rows, columns)
        Finite. A vector counts as one column.
    y : array_like, shape (rows,)
    hidden : sequence of int, or int
        Widths of the hidden layers.
    activation : {"softplus", "id"}
        "id" is a linear model.
    core : float, optional
        In units of y; estimated if not given.
    decay : float, optional
        Penalty 1/2 decay w^2 of the weights of scaled inputs and targets, beside the summed negative
        log-likelihood; 0 for none. Chosen by cross-validation if not given.
    seed : int
        Of starts, folds and the rows that are searched.
    starts : int
        Random starts.
    threads : int
        At most; no bit depends on it.
    columns, target : names that go into the model file
    progress : callable, optional
        Gets a `Progress` after every evaluation. An exception of it ends the fit and is passed on.

    Raises
    ------
    FitError
        A ValueError with the index of the row at fault, if it is about one.
    """
    rows = _matrix("x", x)
    targets = contiguous(numbers("y", y))
    if targets.shape != (len(rows),):
        raise ValueError(f"y has the shape {targets.shape}, needs ({len(rows)},)")
    widths = [index(width) for width in ([hidden] if np.ndim(hidden) == 0 else hidden)]  # type: ignore[arg-type, union-attr]
    if not all(0 < width < 2**32 for width in widths):
        raise ValueError(f"hidden: {widths} are not widths of layers")
    names = None if columns is None else [str(name) for name in columns]
    if names is not None and len(names) != rows.shape[1]:
        raise ValueError(f"columns has {len(names)} names, x has {rows.shape[1]} columns")
    watch = _Watch(progress)
    options = c.Options(
        size=ctypes.sizeof(c.Options),
        hidden=(ctypes.c_uint * len(widths))(*widths),
        layers=len(widths),
        activation=activation.encode(),
        core=_positive("core", core),
        decay=_decay(decay),
        seed=_count("seed", seed, 2**64),
        starts=_count("starts", starts, 2**32, least=1),
        threads=_count("threads", threads, 2**32, least=1),
        target=target.encode(),
        progress=watch.callback,
    )
    if names is not None:
        options.columns = (c.Column * len(names))(*[c.Column(name=n.encode()) for n in names])
    pointer = ctypes.c_void_p()
    code = c.library.vemkn_fit_robust(
        rows.ctypes.data, *rows.shape, targets.ctypes.data, ctypes.byref(options), ctypes.byref(pointer)
    )
    if watch.failure is not None:
        raise watch.failure
    _check(code)
    return Curve(pointer)


def _matrix(name: str, values: ArrayLike) -> Array:
    array = numbers(name, values)
    if array.ndim == 1:
        array = array[:, np.newaxis]
    if array.ndim != 2:
        raise ValueError(f"{name} has the shape {array.shape}, needs (rows, columns)")
    return contiguous(array)


def _count(name: str, value: Any, end: int, least: int = 0) -> int:
    number = index(value)
    if not least <= number < end:
        raise ValueError(f"{name}: {number} is not within {least} ... {end - 1}")
    return number


def _positive(name: str, value: float | None) -> float:
    if value is None:
        return 0.0
    if not 0.0 < value < np.inf:
        raise ValueError(f"{name}: {value} is not a positive number")
    return float(value)


def _decay(value: float | None) -> float:
    if value is None:
        return 0.0
    if not 0.0 <= value < np.inf:
        raise ValueError(f"decay: {value} is not a number from 0 on")
    return float(value) or c.NO_DECAY
