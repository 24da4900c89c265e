"""The objective under PyTorch's own checks of first and second derivatives."""

from __future__ import annotations

from typing import Any

import numpy as np
import pytest
from vemkn import Network

torch = pytest.importorskip("torch")

from vemkn.torch import objective  # noqa: E402

X = np.linspace(-1, 1, 12).reshape(6, 2)
Y = np.linspace(0.5, 1.5, 12).reshape(6, 2)


def weights(network: Network) -> Any:
    start = np.sin(np.arange(network.numel, dtype=float))
    return torch.tensor(start, requires_grad=True)


@pytest.mark.parametrize("activation", ["softplus", "atan"])
@pytest.mark.parametrize("norm", ["sum_log_dnorm_fat", "sum"])
def test_derivatives_agree_with_differences(activation: str, norm: str) -> None:
    network = Network(2, 2, hidden=[3], activation=activation, norm=norm)
    w = weights(network)

    def loss(w: Any) -> Any:
        return objective(network, w, X, Y)

    assert torch.autograd.gradcheck(loss, (w,))
    assert torch.autograd.gradgradcheck(loss, (w,))


def test_it_is_the_objective_of_the_network_and_a_term_of_a_loss() -> None:
    network = Network(2, 2, hidden=[3])
    w = weights(network)
    value = objective(network, w, torch.tensor(X), torch.tensor(Y))
    expected, gradient = network.value_and_grad(w.detach().numpy(), X, Y)
    assert value.item() == expected == objective(network, w.detach(), X, Y).item()
    (3.0 * value + 0.5 * (w**2).sum()).backward()
    np.testing.assert_allclose(w.grad, 3.0 * gradient + w.detach().numpy(), rtol=1e-15)


def test_hessian_products() -> None:
    network = Network(2, 2, hidden=[3])
    w = weights(network)
    v = torch.ones_like(w)
    expected = network.hvp(w.detach().numpy(), v.numpy(), X, Y)
    # One of them differentiates products of the Hessian in their vector.
    for product_of in torch.autograd.functional.hvp, torch.autograd.functional.vhp:
        product = product_of(lambda w: objective(network, w, X, Y), w, v)[1]
        assert (product.numpy() == expected).all()
    matrix = torch.autograd.functional.hessian(lambda w: objective(network, w, X, Y) ** 2, w)
    value, gradient = network.value_and_grad(w.detach().numpy(), X, Y)
    squared = 2 * value * expected + 2 * gradient * gradient.sum()
    np.testing.assert_allclose(matrix.sum(1), squared, rtol=1e-12)


def test_an_optimiser_gets_down() -> None:
    network = Network(2, 2, hidden=[3])
    w = weights(network)
    optimiser = torch.optim.LBFGS([w], line_search_fn="strong_wolfe")

    def closure() -> Any:
        optimiser.zero_grad()
        loss = objective(network, w, X, Y)
        loss.backward()
        return loss

    first = float(closure())
    for _ in range(20):
        optimiser.step(closure)
    assert float(closure()) < 0.1 * first


def test_the_gradient_is_formed_where_it_is_wanted(monkeypatch: pytest.MonkeyPatch) -> None:
    network = Network(2, 2, hidden=[3])
    w = weights(network)
    expected = network.objective(w.detach().numpy(), X, Y)
    monkeypatch.setattr(Network, "value_and_grad", None)
    with torch.no_grad():
        assert objective(network, w, X, Y).item() == expected


def test_rows_that_change_before_a_derivative_is_taken_raise() -> None:
    network = Network(2, 2, hidden=[3])
    w, x = weights(network), torch.tensor(X)
    (first,) = torch.autograd.grad(objective(network, w, x, Y), w, create_graph=True)
    x.add_(5)
    with pytest.raises(RuntimeError, match="x has been changed"):
        first.sum().backward()


def test_gradients_are_nobody_elses_memory() -> None:
    network = Network(2, 2, hidden=[3])
    w = weights(network)
    value = objective(network, w, X, Y)
    value.backward(retain_graph=True)
    once = w.grad.clone()
    w.grad.mul_(7)
    value.backward(retain_graph=True)
    np.testing.assert_allclose(w.grad, 8 * once, rtol=1e-14)


def test_anything_else_raises() -> None:
    network = Network(2, 2, hidden=[3])
    w = weights(network)
    with pytest.raises(TypeError, match="w is a ndarray"):
        objective(network, w.detach().numpy(), X, Y)
    with pytest.raises(TypeError, match="float32"):
        objective(network, w.float(), X, Y)
    with pytest.raises(TypeError, match="meta"):
        objective(network, w.to("meta"), X, Y)
    with pytest.raises(ValueError, match="x requires gradients"):
        objective(network, w, torch.tensor(X, requires_grad=True), Y)
    with pytest.raises(ValueError, match="w has the shape"):
        objective(network, w[:-1], X, Y)
    (first,) = torch.autograd.grad(objective(network, w, X, Y), w, create_graph=True)
    (second,) = torch.autograd.grad(first.sum(), w, create_graph=True)
    with pytest.raises(RuntimeError, match="no third"):
        second.sum().backward(retain_graph=True)
    with pytest.raises(RuntimeError, match="no third"):
        torch.autograd.grad(second.sum(), w)
