"""Derivatives against complex steps through the plain evaluation, see reference.py.

First derivatives agree up to rounding. Hessian products are compared with central differences of
the reference's gradient: their error is the step's square times third derivatives, here below 1e-8.
"""

from __future__ import annotations

import os
import sys
import threading
from collections.abc import Callable
from typing import Any

import numpy as np
import pytest
import reference
from conftest import ROWS, Case, make_case
from reference import assert_close
from vemkn import _library
from vemkn._arrays import Array
from vemkn._library import tangent_order, library

ROUNDING = 1e-11
DIFFERENCES = 1e-6
STEP = 1e-5


def hessian_product(case: Case, v: Array) -> Any:
    ahead = reference.gradient(case.network, case.w + STEP * v, case.x, case.y)
    behind = reference.gradient(case.network, case.w - STEP * v, case.x, case.y)
    return (ahead - behind) / (2 * STEP)


def test_the_data_reach_both_branches_and_differences_cross_none(case: Case) -> None:
    if case.network.norm == "sum":
        return
    r = np.abs(case.network.residual(case.w, case.x, case.y))
    assert (r < 1.9).any() and (r > 2.1).any() and not ((r > 1.9) & (r < 2.1)).any()


def test_value_and_gradient(case: Case) -> None:
    value, gradient = case.network.value_and_grad(case.w, case.x, case.y)
    assert value == case.network.objective(case.w, case.x, case.y)
    expected = reference.gradient(case.network, case.w, case.x, case.y)
    assert_close(gradient, expected, ROUNDING)


def test_the_gradient_against_finite_differences_of_the_library(case: Case) -> None:
    gradient = case.network.value_and_grad(case.w, case.x, case.y)[1]
    for k, unit in enumerate(np.eye(case.network.numel)):
        ahead = case.network.objective(case.w + STEP * unit, case.x, case.y)
        behind = case.network.objective(case.w - STEP * unit, case.x, case.y)
        assert_close(gradient[k], (ahead - behind) / (2 * STEP), DIFFERENCES)


def test_hessian_products_with_one_and_with_many_tangents(case: Case) -> None:
    v = case.random.standard_normal((case.network.numel, 3))
    products = case.network.hvp(case.w, v, case.x, case.y)
    assert products.shape == v.shape
    for product, tangent in zip(products.T, v.T):
        assert_close(product, hessian_product(case, tangent), DIFFERENCES)
        alone = case.network.hvp(case.w, tangent, case.x, case.y)
        assert alone.shape == tangent.shape
        assert_close(alone, product, ROUNDING)


def test_one_call_gives_value_gradient_and_products(case: Case) -> None:
    value, gradient, products = case.network.value_grad_hvp(case.w, case.w, case.x, case.y)
    expected_value, expected_gradient = case.network.value_and_grad(case.w, case.x, case.y)
    assert_close(value, expected_value, ROUNDING)
    assert_close(gradient, expected_gradient, ROUNDING)
    assert (products == case.network.hvp(case.w, case.w, case.x, case.y)).all()


def test_jacobian_and_its_products(case: Case) -> None:
    network, w, x, y = case.network, case.w, case.x, case.y
    expected = reference.jacobian_of(lambda at: reference.objective_each(network, at, x, y), w)
    assert expected.shape == (ROWS, network.numout, network.numel)
    assert_close(network.jacobian(w, x, y), expected, ROUNDING)

    v = case.random.standard_normal((network.numel, 4))
    values, products = network.jvp(w, v, x, y)
    assert_close(values, reference.objective_each(network, w, x, y), ROUNDING)
    assert_close(products, expected @ v, ROUNDING)
    assert_close(network.jvp(w, v[:, 0], x, y)[1], expected @ v[:, 0], ROUNDING)

    u = case.random.standard_normal((5, ROWS, network.numout))
    residuals, gradients = network.vjp_many(w, u, x, y)
    assert_close(residuals, network.residual(w, x, y), 1e-13)
    assert_close(gradients, np.tensordot(u, expected, 2), ROUNDING)
    residuals, gradient = network.vjp(w, u[0], x, y)
    assert_close(residuals, network.residual(w, x, y), 1e-13)
    assert_close(gradient, np.tensordot(u[0], expected, 2), ROUNDING)


def test_no_rows_and_no_tangents(one: Case) -> None:
    network, w, numel = one.network, one.w, one.network.numel
    no_x, no_y = np.empty((0, 2)), np.empty((0, 1))
    assert network.compute(w, no_x).shape == (0, 1)
    assert network.objective_each(w, no_x, no_y).shape == (0, 1)
    assert network.jacobian(w, no_x, no_y).shape == (0, 1, numel)
    assert not network.vjp(w, no_y, no_x, no_y)[1].any()
    no_tangents = np.empty((numel, 0))
    assert network.hvp(w, no_tangents, one.x, one.y).shape == (numel, 0)
    assert network.jvp(w, no_tangents, one.x, one.y)[1].shape == (ROWS, 1, 0)
    assert network.vjp_many(w, np.empty((0, ROWS, 1)), one.x, one.y)[1].shape == (0, numel)


@pytest.mark.parametrize("order", [0, 1])
def test_the_process_wide_order_of_tangents_is_left_as_found(order: int, one: Case) -> None:
    v = one.random.standard_normal((one.network.numel, 2))
    expected = one.network.hvp(one.w, v, one.x, one.y)
    expected_jv = one.network.jvp(one.w, v, one.x, one.y)[1]
    library.vemk_major(None, order)
    try:
        assert (one.network.hvp(one.w, v, one.x, one.y) == expected).all()
        assert (one.network.jvp(one.w, v, one.x, one.y)[1] == expected_jv).all()
        assert tangent_order.current == order
        with tangent_order.interleaved(), tangent_order.interleaved():
            assert tangent_order.current == 0
        assert tangent_order.current == order
    finally:
        library.vemk_major(None, 0)


def test_a_forked_child_begins_with_the_order_as_found() -> None:
    """Another thread is in the middle of a call, which the child does not have, when we fork."""
    inside, forked = threading.Event(), threading.Event()

    def call() -> None:
        with tangent_order.interleaved():
            inside.set()
            forked.wait()

    library.vemk_major(None, 1)
    thread = threading.Thread(target=call)
    thread.start()
    inside.wait()
    child = os.fork()
    if child == 0:
        os._exit(7 if tangent_order.current == 1 else 1)
    forked.set()
    thread.join()
    library.vemk_major(None, 0)
    assert os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]) == 7


def call() -> None:
    with tangent_order.interleaved():
        assert tangent_order.current == 0


def before_line(number: int, action: Callable[[], None]) -> Any:
    """A trace function that acts, as a signal handler may, between two lines of the module."""
    lines = 0

    def trace(frame: Any, event: str, _: object) -> Any:
        nonlocal lines
        if frame.f_code.co_filename != _library.__file__:
            return None
        lines += event == "line"
        if event == "line" and lines == number:
            action()
        return trace

    return trace


def test_a_call_may_interrupt_another_at_any_line() -> None:
    """It must not wait for the one that it interrupts, and both need the order."""
    interrupted: list[bool] = []
    orders = []

    def interrupt() -> None:
        interrupted[-1] = True
        call()

    def use() -> None:
        for number in range(1, 50):
            interrupted.append(False)
            sys.settrace(before_line(number, interrupt))
            call()
            sys.settrace(None)
            orders.append(tangent_order.current)

    library.vemk_major(None, 1)
    thread = threading.Thread(target=use, daemon=True)
    thread.start()
    thread.join(timeout=10)
    library.vemk_major(None, 0)
    assert not thread.is_alive(), "it waits"
    assert interrupted[0] and not interrupted[-1], "some lines were not reached"
    assert orders == [1] * len(interrupted)


@pytest.mark.parametrize("when", [0, 1], ids=["before the call", "after it"])
def test_an_exception_out_of_a_signal_handler_leaves_the_order_as_found(
    when: int, monkeypatch: pytest.MonkeyPatch
) -> None:
    really = tangent_order._set
    changes: list[int] = []

    def change(order: int) -> None:
        really(order)
        changes.append(order)
        if changes == [0, 1][: when + 1]:
            raise KeyboardInterrupt

    library.vemk_major(None, 1)
    monkeypatch.setattr(tangent_order, "_set", change)
    try:
        with pytest.raises(KeyboardInterrupt):
            call()
        assert tangent_order.current == 1
        library.vemk_major(None, 2)
        call()
        assert tangent_order.current == 2
    finally:
        library.vemk_major(None, 0)


def test_the_bits_depend_on_threads_and_batch_only() -> None:
    first, second = (make_case("3 2 3 1 32 3 4 3 atan sum_log_dnorm_fat", 3, 8) for _ in range(2))
    value, gradient = first.network.value_and_grad(first.w, first.x, first.y)
    again, gradient_again = second.network.value_and_grad(second.w, second.x, second.y)
    assert value == again
    assert (gradient == gradient_again).all()
