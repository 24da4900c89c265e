"""The objective as a function of the weights for PyTorch, differentiable twice.

A network of the library is a term of a loss like any other: `objective(network, w, x, y)` is a tensor whose `backward()` takes
`vemk_g`, and whose second derivatives, with ``create_graph=True`` or under ``torch.autograd.functional.hvp``, take `vemk_Hv`.
"""

from __future__ import annotations

from typing import Any

import torch
from numpy.typing import ArrayLike

from .network import Network

__all__ = ["objective"]


def objective(
    network: Network,
    w: torch.Tensor,
    x: ArrayLike | torch.Tensor,
    y: ArrayLike | torch.Tensor,
) -> torch.Tensor:
    """The mean norm of the residuals, as `Network.objective`.

    Parameters
    ----------
    network : Network
        Not copied, and left open; to be open still when derivatives are taken.
    w : Tensor of float64 on the CPU, shape (numel,)
        Weights, in the library's order.
    x, y : Tensor or array_like, shapes (rows, numin) and (rows, numout)
        Inputs and targets, constants; at least one row. Not copied where they need no conversion: they
        must not change until the derivatives are taken.

    Returns
    -------
    Tensor of float64, shape ()
        With first and second derivatives in `w`; a third one raises RuntimeError.

    Raises
    ------
    TypeError
        For weights of another type, or on another device.
    ValueError
        For shapes that do not fit, and for inputs or targets that derivatives are asked in.

    Examples
    --------
    >>> network = Network(1, 1, hidden=[3])
    >>> w = torch.full((network.numel,), 0.1, dtype=torch.float64, requires_grad=True)
    >>> loss = objective(network, w, [[0.0], [1.0]], [[1.0], [2.0]]) + 0.1 * (w**2).sum()
    >>> loss.backward()
    >>> w.grad.shape
    torch.Size([10])
    """
    if w.dtype != torch.float64 or w.device.type != "cpu":
        raise TypeError(f"w is of {w.dtype} on {w.device}: the library takes torch.float64 on cpu")
    for name, rows in (("x", x), ("y", y)):
        if isinstance(rows, torch.Tensor) and rows.requires_grad:
            raise ValueError(f"{name} requires gradients: there are derivatives in the weights alone")
    data = network._data(_array(x), _array(y), empty=False)
    value: torch.Tensor = _Objective.apply(w, network, *data)
    return value


def _array(rows: ArrayLike | torch.Tensor) -> Any:
    return rows.numpy() if isinstance(rows, torch.Tensor) else rows


class _Objective(torch.autograd.Function):
    @staticmethod
    def forward(ctx: Any, w: torch.Tensor, *constants: Any) -> torch.Tensor:
        network, x, y = constants
        ctx.save_for_backward(w)
        ctx.constants = constants
        if not ctx.needs_input_grad[0]:
            return torch.tensor(network.objective(w.numpy(), x, y), dtype=torch.float64)
        value, ctx.gradient = network.value_and_grad(w.numpy(), x, y)
        return torch.tensor(value, dtype=torch.float64)

    @staticmethod
    def backward(ctx: Any, seed: torch.Tensor) -> tuple[torch.Tensor | None, ...]:
        (w,) = ctx.saved_tensors
        return seed * _Gradient.apply(w, ctx.gradient, *ctx.constants), None, None, None


class _Gradient(torch.autograd.Function):
    @staticmethod
    def forward(ctx: Any, w: torch.Tensor, gradient: Any, *constants: Any) -> torch.Tensor:
        ctx.save_for_backward(w)
        ctx.constants = constants
        return torch.from_numpy(gradient)

    @staticmethod
    def backward(ctx: Any, v: torch.Tensor) -> tuple[torch.Tensor | None, ...]:
        (w,) = ctx.saved_tensors
        # The Hessian is symmetric.
        product = _Product.apply(_LastInTheWeights.apply(w), v, *ctx.constants)
        return product, None, None, None, None


class _Product(torch.autograd.Function):
    """The Hessian times v: linear in v, which PyTorch makes use of to form products in forward order."""

    @staticmethod
    def forward(ctx: Any, w: torch.Tensor, v: torch.Tensor, *constants: Any) -> torch.Tensor:
        ctx.save_for_backward(w)
        ctx.constants = constants
        network, x, y = constants
        return torch.from_numpy(network.hvp(w.numpy(), v.numpy(), x, y))

    @staticmethod
    def backward(ctx: Any, u: torch.Tensor) -> tuple[torch.Tensor | None, ...]:
        (w,) = ctx.saved_tensors
        return torch.zeros_like(w), _Product.apply(w, u, *ctx.constants), None, None, None


class _LastInTheWeights(torch.autograd.Function):
    """The weights, beyond which no derivative goes: reached only where a third one is asked for."""

    @staticmethod
    def forward(ctx: Any, w: torch.Tensor) -> torch.Tensor:
        return w.view_as(w)

    @staticmethod
    def backward(ctx: Any, _: torch.Tensor) -> torch.Tensor:
        raise RuntimeError("the objective of a network has first and second derivatives, no third")
