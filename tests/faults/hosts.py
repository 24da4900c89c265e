"""A Python host: floating-point flags that NumPy leaves pending, and processes that multiprocessing forks.

Usage: hosts.py LIBRARY stale_flags|fork
"""

import ctypes
import multiprocessing
import sys

TEXT = b"3 2 2 1 8 3 8 softplus sum_log_dnorm_fat"
NW = 3 * 8 + 8 + 8 * 2 + 2
ROWS = 203

library = ctypes.CDLL(sys.argv[1])
library.initVEMKNet.restype = ctypes.c_void_p
library.initVEMKNet.argtypes = [ctypes.c_char_p, ctypes.c_int]
library.vemk_setpar.argtypes = [ctypes.c_void_p, ctypes.c_uint, ctypes.c_int]
library.vemk_g.argtypes = [ctypes.c_void_p] + [
    ctypes.c_void_p,
    ctypes.c_uint,
    ctypes.c_void_p,
    ctypes.c_void_p,
    ctypes.c_uint,
    ctypes.c_uint,
    ctypes.c_uint,
    ctypes.c_void_p,
    ctypes.c_void_p,
]


def numbers(n, scale):
    return (ctypes.c_double * n)(*[scale * ((7 * k) % 11 - 5) for k in range(n)])


def network():
    net = library.initVEMKNet(TEXT, len(TEXT))
    library.vemk_setpar(net, 4, 8)
    return net


def gradient(net):
    """Value and gradient as bytes, so that comparing them compares bits."""
    value = ctypes.c_double(0)
    result = numbers(NW, 0.0)
    status = library.vemk_g(
        net, numbers(NW, 0.1), NW, numbers(3 * ROWS, 0.2), numbers(2 * ROWS, 0.3), ROWS, 3, 2,
        ctypes.byref(value), result)
    assert status == 0
    return bytes(value) + bytes(result)


def leave_flags():
    import numpy

    with numpy.errstate(all="ignore"):
        zero = numpy.longdouble(0)
        # The last thing that NumPy does: anything after it would clear the flag.
        numpy.longdouble(1) / zero


def stale_flags():
    leave_flags()
    net = network()
    expected = gradient(net)
    for _ in range(10):
        leave_flags()
        assert gradient(net) == expected


def fork():
    global net
    net = network()
    expected = gradient(net)
    with multiprocessing.get_context("fork").Pool(3) as pool:
        of_children = pool.map_async(work, range(12)).get(timeout=60)
    assert of_children == [expected] * 12, "the bits differ"
    assert gradient(net) == expected


def work(_):
    return gradient(net)


if __name__ == "__main__":
    {"stale_flags": stale_flags, "fork": fork}[sys.argv[2]]()
    print("done")
