"""What array arguments may be, when they are copied, and what is refused before any call."""

from __future__ import annotations

import re
from collections.abc import Callable
from typing import Any

import numpy as np
import pytest
from conftest import ROWS, Case
from vemkn import Network, _arrays, _base


def test_what_the_library_can_read_is_not_copied() -> None:
    x = np.arange(12.0).reshape(4, 3)
    x.setflags(write=False)
    assert _arrays.matrix("x", x, 3) is x
    assert _arrays.matrix("x", x, 5, fewer=True) is x
    assert np.shares_memory(_arrays.matrix("x", x[1:3], 3), x)
    flat = x.reshape(-1)
    assert _arrays.vector("w", flat, 12) is flat
    assert np.shares_memory(_arrays.matrix("y", flat, 1), x)
    assert np.shares_memory(_arrays.tangents("v", flat, 12), x)
    assert np.shares_memory(_arrays.cotangents("u", x, (3, 1)), x)


@pytest.mark.parametrize(
    "other",
    [
        np.asfortranarray,
        lambda x: np.repeat(x, 2, axis=0)[::2],
        lambda x: x.astype(np.float32),
        lambda x: x.astype(int),
        lambda x: x.astype(">f8"),
        lambda x: x.tolist(),
        lambda x: x.astype(object),
        lambda x: np.frombuffer(b"." + x.tobytes(), np.uint8)[1:].view(np.float64).reshape(x.shape),
    ],
    ids=["Fortran", "strided", "single", "int", "big-endian", "list", "object", "unaligned"],
)
def test_other_array_likes_give_the_same_numbers(other: Callable[[Any], Any]) -> None:
    x = np.arange(12.0).reshape(4, 3)
    converted = _arrays.matrix("x", other(x), 3)
    assert (converted == x).all()
    assert converted.flags.c_contiguous and converted.flags.aligned
    assert converted.dtype == np.float64 and converted.dtype.isnative


def test_a_vector_counts_as_one_column() -> None:
    one_input = Network(1, 1, hidden=[3])
    w = np.linspace(-1, 1, one_input.numel)
    x, y = np.linspace(-2, 2, 5), np.linspace(1, 3, 5)
    flat = one_input.value_and_grad(w, x, y)
    columns = one_input.value_and_grad(w, x[:, np.newaxis], y[:, np.newaxis])
    assert flat[0] == columns[0] and (flat[1] == columns[1]).all()
    assert one_input.residual(w, x, y).shape == (5, 1)


def test_results_do_not_alias_each_other(one: Case) -> None:
    first = one.network.compute(one.w, one.x)
    kept = first.copy()
    one.network.compute(-one.w, one.x)
    assert (first == kept).all()


Call = Callable[[Network, Any, Any, Any], Any]
WEIGHTS_INPUTS_TARGETS: dict[str, Call] = {
    "residual": lambda n, w, x, y: n.residual(w, x, y),
    "objective_each": lambda n, w, x, y: n.objective_each(w, x, y),
    "objective": lambda n, w, x, y: n.objective(w, x, y),
    "value_and_grad": lambda n, w, x, y: n.value_and_grad(w, x, y),
    "hvp": lambda n, w, x, y: n.hvp(w, np.zeros(n.numel), x, y),
    "jvp": lambda n, w, x, y: n.jvp(w, np.zeros(n.numel), x, y),
    "jacobian": lambda n, w, x, y: n.jacobian(w, x, y),
    "vjp": lambda n, w, x, y: n.vjp(w, np.zeros((ROWS, 1)), x, y),
    "vjp_many": lambda n, w, x, y: n.vjp_many(w, np.zeros((2, ROWS, 1)), x, y),
}


@pytest.fixture
def no_library(one: Case, monkeypatch: pytest.MonkeyPatch) -> None:
    """What a wrong shape must not reach: the library would end the process, or read beyond arrays.
    (The network is named because making one calls the library.)"""
    monkeypatch.setattr(Network, "_call", lambda *_: pytest.fail("the library was called"))


@pytest.mark.usefixtures("no_library")
@pytest.mark.parametrize("call", WEIGHTS_INPUTS_TARGETS.values(), ids=WEIGHTS_INPUTS_TARGETS)
def test_wrong_weights_inputs_and_targets(call: Call, one: Case) -> None:
    n, w, x, y = one.network, one.w, one.x, one.y
    wrong: list[tuple[str, tuple[Any, Any, Any]]] = [
        ("w has the shape (20,), needs (21,)", (w[1:], x, y)),
        ("w has the shape (1, 21)", (w[np.newaxis], x, y)),
        ("w has the shape ()", (0.0, x, y)),
        ("x has the shape (75, 3), needs (rows, at most 2)", (w, np.zeros((ROWS, 3)), y)),
        ("x has the shape (2,)", (w, x[0], y)),
        ("x has the shape (1, 75, 2)", (w, x[np.newaxis], y)),
        ("y has the shape (75, 2), needs (rows, 1)", (w, x, np.zeros((ROWS, 2)))),
        ("y has the shape (75, 0)", (w, x, np.zeros((ROWS, 0)))),
        ("y has 74 rows, x has 75", (w, x, y[1:])),
        ("y has the shape ()", (w, x, 1.0)),
    ]
    for message, arguments in wrong:
        with pytest.raises(ValueError, match=re.escape(message)):
            call(n, *arguments)
    for not_numbers in (x.astype(complex), x.astype(str), x.astype("datetime64[s]")):
        with pytest.raises(TypeError, match="x holds values of type"):
            call(n, w, not_numbers, y)


@pytest.mark.usefixtures("no_library")
def test_wrong_tangents_and_cotangents(one: Case) -> None:
    n, w, x, y = one.network, one.w, one.x, one.y
    wrong: list[Any]
    wrong = [np.zeros(20), np.zeros((20, 2)), np.zeros((1, 21)), np.zeros((21, 1, 1)), 0.0]
    for v in wrong:
        for product in (n.hvp, n.value_grad_hvp, n.jvp):
            with pytest.raises(ValueError, match="v has the shape"):
                product(w, v, x, y)
    wrong = [np.zeros((ROWS, 2)), np.zeros((1, ROWS, 1)), 0.0]
    for u in wrong:
        with pytest.raises(ValueError, match="u has the shape"):
            n.vjp(w, u, x, y)
    with pytest.raises(ValueError, match="u has 74 rows"):
        n.vjp(w, np.zeros(ROWS - 1), x, y)
    wrong = [np.zeros((ROWS, 1)), np.zeros((2, ROWS, 2)), np.zeros((2, ROWS - 1, 1)), 0.0]
    for u in wrong:
        with pytest.raises(ValueError, match="u has the shape"):
            n.vjp_many(w, u, x, y)
    with pytest.raises(ValueError, match="x has the shape"):
        n.compute(w, np.zeros((ROWS, 3)))
    with pytest.raises(ValueError, match="w has the shape"):
        n.split(w[1:])
    with pytest.raises(ValueError, match="weights has the shape"):
        n.weights = w[1:]


@pytest.mark.usefixtures("no_library")
def test_a_mean_over_no_rows(one: Case) -> None:
    n, no_x, no_y = one.network, np.empty((0, 2)), np.empty((0, 1))
    calls: list[Callable[..., Any]]
    calls = [n.objective, n.value_and_grad, lambda w, x, y: n.hvp(w, w, x, y)]
    for call in calls:
        with pytest.raises(ValueError, match="no rows"):
            call(one.w, no_x, no_y)


@pytest.mark.usefixtures("no_library")
def test_more_than_the_library_counts(one: Case) -> None:
    """Broadcast arrays of 2^32 numbers in one: copying them first would take 32 GB."""
    n, many = one.network, 2**32
    with pytest.raises(ValueError, match="x has 4294967296 rows"):
        n.compute(one.w, np.broadcast_to(0.0, (many, 2)))
    with pytest.raises(ValueError, match="takes fewer than 4294967296"):
        n.hvp(one.w, np.broadcast_to(0.0, (n.numel, many // n.numel + 1)), one.x, one.y)
    with pytest.raises(ValueError, match="takes fewer than 4294967296"):
        n.vjp_many(one.w, np.broadcast_to(0.0, (many // ROWS + 1, ROWS, 1)), one.x, one.y)
    with pytest.raises(ValueError, match="takes fewer than 4294967296"):
        n.element_norm(np.broadcast_to(0.0, (many,)))


@pytest.mark.usefixtures("no_library")
def test_more_cotangents_of_no_rows_than_the_library_counts(one: Case) -> None:
    many = np.empty((2**32 + 1, 0, 1))
    with pytest.raises(ValueError, match="takes fewer than 4294967296"):
        one.network.vjp_many(one.w, many, np.empty((0, 2)), np.empty((0, 1)))


@pytest.mark.usefixtures("no_library")
def test_masked_values_are_refused(one: Case) -> None:
    masked: Any = one.x.view(np.ma.MaskedArray)
    assert one.network._inputs(masked).shape == one.x.shape
    masked[0, 0] = np.ma.masked
    with pytest.raises(ValueError, match="x has masked values"):
        one.network.compute(one.w, masked)


def test_a_call_that_the_library_refuses_all_the_same() -> None:
    with pytest.raises(ValueError, match="vemk_g: the library refused"):
        _base._check_status("vemk_g", -1)
    _base._check_status("vemk_g", 0)
    _base._check_status("vemk_g", 1)
