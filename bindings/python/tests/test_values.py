"""Outputs, residuals, norms and objectives against the plain evaluation.

Both sides round a few dozen operations on numbers of order 1 to 30, and sums of up to 150 of them.
"""

from __future__ import annotations

import numpy as np
import pytest
import reference
from conftest import Case
from reference import assert_close
from vemkn import Network

ROUNDING = 1e-13


def test_outputs_and_residuals(case: Case) -> None:
    expected = reference.outputs(case.network, case.w, case.x)
    assert_close(case.network.compute(case.w, case.x), expected, ROUNDING)
    residual = case.network.residual(case.w, case.x, case.y)
    assert_close(residual, expected - case.y, ROUNDING)


def test_the_norm_of_every_residual_and_their_mean(case: Case) -> None:
    expected = reference.objective_each(case.network, case.w, case.x, case.y)
    each = case.network.objective_each(case.w, case.x, case.y)
    assert_close(each, expected, ROUNDING)
    value = case.network.objective(case.w, case.x, case.y)
    assert_close(value, expected.mean(), ROUNDING)


@pytest.mark.parametrize("norm", ["sum", "sum_log_dnorm_fat"])
def test_the_norm_without_a_network_keeps_the_shape(norm: str) -> None:
    network = Network(1, 1, hidden=[1], norm=norm)
    below = np.nextafter(2.0, 0.0)
    r = np.array([[0.0, 0.3, -1.9], [below, 2.0, -500.0]])
    assert_close(network.element_norm(r), reference.element_norm(network, r), ROUNDING)
    assert network.element_norm(0.5).shape == ()
    assert network.element_norm(np.empty((0, 3))).shape == (0, 3)


def test_missing_input_columns_count_as_zeros(one: Case) -> None:
    padded = np.column_stack([one.x[:, 0], np.zeros(len(one.x))])
    expected = reference.outputs(one.network, one.w, padded)
    assert_close(one.network.compute(one.w, one.x[:, :1]), expected, ROUNDING)


def test_inputs_are_limited_by_the_first_size_too() -> None:
    network = Network.from_description("3 1 2 1 32 2 2 softplus sum")
    assert network.compute(None, np.zeros((4, 2))).shape == (4, 1)
    with pytest.raises(ValueError, match="at most 2"):
        network.compute(None, np.zeros((4, 3)))


def test_no_weights_stand_for_the_networks_own(case: Case) -> None:
    network, x, y = case.network, case.x, case.y
    assert not network.weights.any()
    network.weights = case.w
    assert (network.weights == case.w).all()
    assert (network.compute(None, x) == network.compute(case.w, x)).all()
    assert network.objective(None, x, y) == network.objective(case.w, x, y)
    assert (network.value_and_grad(None, x, y)[1] == network.value_and_grad(case.w, x, y)[1]).all()
    assert (network.hvp(None, case.w, x, y) == network.hvp(case.w, case.w, x, y)).all()
    assert (network.jvp(None, case.w, x, y)[1] == network.jvp(case.w, case.w, x, y)[1]).all()
    assert (network.vjp(None, y, x, y)[1] == network.vjp(case.w, y, x, y)[1]).all()


def test_split_gives_views_that_make_up_a_layer(one: Case) -> None:
    (b0, w0), (b1, w1) = one.network.split(one.w)
    hidden = np.log1p(np.exp(one.x @ w0 + b0))
    expected = np.log1p(np.exp(hidden @ w1 + b1))
    assert_close(one.network.compute(one.w, one.x), expected, ROUNDING)
    for part in (b0, w0, b1, w1):
        assert np.shares_memory(part, one.w)
    assert sum(part.size for part in (b0, w0, b1, w1)) == one.network.numel


def test_split_knows_of_repeated_layers() -> None:
    network = Network(2, 3, hidden=[4, 2], nmult=5)
    shapes = [(b.shape, matrix.shape) for b, matrix in network.split(np.zeros(network.numel))]
    assert shapes == [((4,), (2, 4)), ((2,), (4, 2)), ((3,), (10, 3))]


def test_the_cores_deviation() -> None:
    assert Network(1, 1, hidden=[1]).sigma == pytest.approx(1 / 3)
