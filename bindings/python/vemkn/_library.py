"""Finds the shared library, checks its version and declares its functions to ctypes."""

from __future__ import annotations

import ctypes
import ctypes.util
import functools
import itertools
import os
import threading
from collections.abc import Iterator, Sequence
from contextlib import contextmanager
from pathlib import Path

# The youngest of the functions that the package calls: a library that lacks it is too old.
YOUNGEST = "vemk_check"

_POINTER = ctypes.c_void_p
_COUNT = ctypes.c_uint
_IGNORED = ctypes.c_uint64

_ROWS_X_Y_OUT = [_POINTER, _COUNT, _POINTER, _POINTER, _COUNT, _COUNT, _COUNT, _POINTER]
_PRODUCT = [_POINTER, _COUNT, _POINTER, _COUNT, _POINTER, _POINTER, _COUNT, _COUNT, _COUNT]

# Name: what it returns, what it takes after the handle.
_FUNCTIONS: dict[str, tuple[type, Sequence[type]]] = {
    "vemk_setpar": (ctypes.c_int, [_COUNT, ctypes.c_int]),
    "vemk_quiet": (ctypes.c_int, [ctypes.c_int]),
    "vemk_major": (ctypes.c_int, [ctypes.c_int]),
    "vemk_numel": (ctypes.c_uint64, []),
    "vemk_maxcols": (_COUNT, []),
    "vemk_logp_bias": (ctypes.c_double, []),
    "vemk_logp_sigma": (ctypes.c_double, []),
    "vemk_setweights": (ctypes.c_int, [_POINTER, _COUNT]),
    "vemk_getweights": (ctypes.c_int, [_POINTER, _COUNT]),
    "vemk_compute": (
        ctypes.c_int,
        [_POINTER, _COUNT, _POINTER, _COUNT, _COUNT, _IGNORED, _POINTER],
    ),
    "vemk_residual": (ctypes.c_int, _ROWS_X_Y_OUT),
    "vemk_obj": (ctypes.c_int, _ROWS_X_Y_OUT),
    "vemk_objv": (ctypes.c_int, _ROWS_X_Y_OUT),
    "vemk_norm": (ctypes.c_int, [_POINTER, _COUNT, _COUNT, _POINTER]),
    "vemk_logp": (ctypes.c_int, [_POINTER, _COUNT, _POINTER]),
    "vemk_g": (ctypes.c_int, [*_ROWS_X_Y_OUT, _POINTER]),
    "vemk_Hv": (ctypes.c_int, [*_PRODUCT, _POINTER, _POINTER, _POINTER]),
    "vemk_Jv": (ctypes.c_int, [*_PRODUCT, _POINTER, _POINTER]),
    "vemk_vJ": (
        ctypes.c_int,
        [_POINTER, _COUNT, _POINTER, _IGNORED, _POINTER, _POINTER, _COUNT, _COUNT, _COUNT]
        + [_POINTER, _POINTER],
    ),
    "vemk_vJ_vec": (ctypes.c_int, [*_PRODUCT, _POINTER, _POINTER]),
}


def _candidates(name: str, variable: str) -> Iterator[str]:
    """Where to look, in this order. What the environment variable names is the only place if it is set."""
    named = os.environ.get(variable)
    if named:
        yield named
        return
    file = f"lib{name}.so.1"
    beside = Path(__file__).resolve().parent / file
    if beside.exists():
        yield str(beside)
    yield file  # LD_LIBRARY_PATH and the system's folders
    found = ctypes.util.find_library(name)
    if found and found != file:
        yield found


def open_library(name: str, variable: str) -> ctypes.CDLL:
    """The shared library lib`name`, from where `variable` says, else from where one looks for libraries."""
    failures = []
    for candidate in _candidates(name, variable):
        try:
            return ctypes.CDLL(candidate)
        except OSError as error:
            failures.append(str(error))
    raise ImportError(
        f"vemkn cannot load the shared library lib{name}. Install it, or name the file in the "
        f"environment variable {variable}. Tried:\n  " + "\n  ".join(failures)
    )


def _version_of(loaded: ctypes.CDLL) -> str:
    if not hasattr(loaded, YOUNGEST):
        raise ImportError(
            f"{loaded._name} is not libvemkn, or an older one: it has no {YOUNGEST}"
        )
    loaded.vemk_version.restype = ctypes.c_char_p
    text: str = loaded.vemk_version().decode()
    return text


@functools.cache
def words(name: str) -> tuple[str, ...]:
    """The words that the library's function vemk_activations or vemk_norms lists, null past their end."""
    function = getattr(library, name)
    function.restype, function.argtypes = ctypes.c_char_p, [_COUNT]
    listed = itertools.takewhile(lambda word: word is not None, map(function, itertools.count()))
    return tuple(word.decode() for word in listed)


def check_description(text: str) -> tuple[int, str]:
    """What vemk_check says of a description: 0, 1 or -1, and its sentence."""
    encoded = text.encode("utf-8", "surrogatepass")
    sentence = ctypes.create_string_buffer(500)
    status: int = library.vemk_check(encoded, len(encoded), sentence, len(sentence))
    return status, sentence.value.decode(errors="replace")


def _declare(loaded: ctypes.CDLL) -> None:
    loaded.initVEMKNet.restype = _POINTER
    loaded.initVEMKNet.argtypes = [ctypes.c_char_p, ctypes.c_int]
    loaded.vemk_check.restype = ctypes.c_int
    loaded.vemk_check.argtypes = [ctypes.c_char_p, ctypes.c_int, ctypes.c_char_p, _COUNT]
    loaded.releaseVEMKNet.restype = None
    loaded.releaseVEMKNet.argtypes = [_POINTER]
    for name, (result, arguments) in _FUNCTIONS.items():
        function = getattr(loaded, name)
        function.restype = result
        function.argtypes = [_POINTER, *arguments]


library = open_library("vemkn", "VEMKN_LIBRARY")
version = _version_of(library)
_declare(library)


class _TangentOrder:
    """Keeps vemkn_rowmajor at 0 while any call of this package needs it so.

    The variable belongs to the process, and other code in it may have set it. The first of the
    calls under way sets it, the last one puts it back: it must not be written while one runs.

    Between any two lines Python may run a signal handler, or a finaliser, that makes a call itself
    or raises an exception. Hence a lock that its owner may take again, and steps in an order that
    allows for another call, or for none of the rest, after each of them.
    """

    def __init__(self) -> None:
        self._variable = ctypes.c_int.in_dll(library, "vemkn_rowmajor")
        self._lock = threading.RLock()
        self._calls: set[object] = set()
        self._found: int | None = None  # what to put back
        os.register_at_fork(after_in_child=self._begin_anew)

    @contextmanager
    def interleaved(self) -> Iterator[None]:
        call = object()
        try:
            with self._lock:
                self._calls.add(call)
                found = self.current
                if self._found is None:
                    self._found = found
                self._set(0)
            yield
        finally:
            try:
                self._leave(call)
            finally:
                self._leave(call)  # in case of an exception within the first

    def _leave(self, call: object) -> None:
        with self._lock:
            self._calls.discard(call)
            found = self._found
            if not self._calls and found is not None:
                self._set(found)
                self._found = None

    def _begin_anew(self) -> None:
        """The calls that other threads had under way are not in the child of a fork."""
        self._lock = threading.RLock()
        self._calls.clear()
        self._leave(None)

    @property
    def current(self) -> int:
        return self._variable.value

    def _set(self, order: int) -> None:
        if self.current != order:
            library.vemk_major(None, order)


tangent_order = _TangentOrder()
