"""Finds libvemknfit and declares its functions to ctypes."""

from __future__ import annotations

import ctypes

from ._library import open_library

_FIT = ctypes.c_void_p
_FITS = ctypes.POINTER(ctypes.c_void_p)
_NUMBERS = ctypes.c_void_p
_TEXT = ctypes.c_char_p
_SIZE = ctypes.c_size_t
_SIZES = ctypes.POINTER(ctypes.c_size_t)

# What a call returns.
OK, ARGUMENT, DATA, SCATTER, CANCELLED, FILE, MODEL, MEMORY = range(8)

NO_DECAY = -1.0

# What an interval is of.
KINDS = {"confidence": 0, "prediction": 1}

WATCH = ctypes.CFUNCTYPE(ctypes.c_int, ctypes.c_void_p, ctypes.c_void_p)


class Column(ctypes.Structure):
    """VEMKNFitColumn."""

    _fields_ = [
        ("name", ctypes.c_char_p),
        ("period", ctypes.c_double),
        ("centre", ctypes.c_double),
        ("spread", ctypes.c_double),
    ]


class Options(ctypes.Structure):
    """VEMKNFitOptions."""

    _fields_ = [
        ("size", ctypes.c_size_t),
        ("hidden", ctypes.POINTER(ctypes.c_uint)),
        ("layers", ctypes.c_size_t),
        ("activation", ctypes.c_char_p),
        ("core", ctypes.c_double),
        ("decay", ctypes.c_double),
        ("seed", ctypes.c_uint64),
        ("starts", ctypes.c_uint),
        ("threads", ctypes.c_uint),
        ("columns", ctypes.POINTER(Column)),
        ("target", ctypes.c_char_p),
        ("progress", WATCH),
        ("host", ctypes.c_void_p),
    ]


# Name: what it returns, what it takes.
_FUNCTIONS: dict[str, tuple[type | None, list[type]]] = {
    "robust": (
        ctypes.c_int,
        [_NUMBERS, _SIZE, _SIZE, _NUMBERS, ctypes.POINTER(Options), _FITS],
    ),
    "free": (None, [_FIT]),
    "predict": (ctypes.c_int, [_FIT, _NUMBERS, _SIZE, _SIZE, _NUMBERS]),
    "interval": (
        ctypes.c_int,
        [_FIT, _NUMBERS, _SIZE, _SIZE, ctypes.c_int, ctypes.c_double, *[_NUMBERS] * 4],
    ),
    "save": (ctypes.c_int, [_FIT, _TEXT]),
    "load": (ctypes.c_int, [_TEXT, _FITS]),
    "write": (ctypes.c_int, [_FIT, _TEXT, _SIZE, _SIZES]),
    "read": (ctypes.c_int, [_TEXT, _SIZE, _FITS]),
    "version": (_TEXT, []),
    "message": (_TEXT, []),
    "row": (ctypes.c_int64, []),
    "columns": (_SIZE, [_FIT]),
    "column": (_TEXT, [_FIT, _SIZE]),
    "targets": (_SIZE, [_FIT]),
    "target": (_TEXT, [_FIT, _SIZE]),
    "core": (ctypes.c_double, [_FIT, _SIZE]),
    "shift": (ctypes.c_double, [_FIT, _SIZE]),
    "decay": (ctypes.c_double, [_FIT]),
    "objective": (ctypes.c_double, [_FIT]),
    "settled": (ctypes.c_int, [_FIT]),
    "rows": (_SIZE, [_FIT]),
    "beyond": (_SIZE, [_FIT]),
    "parameters": (ctypes.c_double, [_FIT]),
    "layers": (_SIZE, [_FIT]),
    "width": (ctypes.c_uint, [_FIT, _SIZE]),
    "activation": (_TEXT, [_FIT]),
    "method": (_TEXT, [_FIT]),
    "weights": (ctypes.POINTER(ctypes.c_double), [_FIT, _SIZES]),
    "notes": (_SIZE, [_FIT]),
    "note": (_TEXT, [_FIT, _SIZE]),
}


def _declare(loaded: ctypes.CDLL) -> None:
    for name, (result, arguments) in _FUNCTIONS.items():
        function = getattr(loaded, f"vemkn_fit_{name}")
        function.restype = result
        function.argtypes = arguments


library = open_library("vemknfit", "VEMKN_FIT_LIBRARY")
_declare(library)
