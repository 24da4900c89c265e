"""The objective as a function of the weights for PyTorch, differentiable twice.

A network of the library is a term of a loss like any other: `objective(network, w, x, y)` is a tensor. Where derivatives are wanted
it is evaluated with its gradient, by `vemk_g`; second derivatives, with ``create_graph=True`` or under
``torch.autograd.functional.hvp``, take `vemk_Hv`.
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
        must not change until the derivatives are taken. A tensor that has raises RuntimeError then.

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

    Notes
    -----
    Reverse mode only, one weight vector at a time: there are no batching rules for ``vmap`` and
    ``vectorize=True``, no forward mode, and a traced function has the value as a constant.

    Examples
    --------
    >>> network = Network(1, 1, hidden=[3])
    >>> w = torch.full((network.numel,), 0.1, dtype=torch.float64, requires_grad=True)
    >>> loss = objective(network, w, [[0.0], [1.0]], [[1.0], [2.0]]) + 0.1 * (w**2).sum()
    >>> loss.backward()
    >>> w.grad.shape
    torch.Size([10])
    """
    if not isinstance(w, torch.Tensor):
        raise TypeError(f"w is a {type(w).__name__}, not a tensor")
    if w.dtype != torch.float64 or w.device.type != "cpu":
        raise TypeError(f"w is of {w.dtype} on {w.device}: the library takes torch.float64 on cpu")
    rows = _Rows(network, x, y)
    differentiates = torch.is_grad_enabled() and w.requires_grad
    value: torch.Tensor = _Objective.apply(w, rows, differentiates)
    return value


class _Rows:
    """A network, and the rows that its objective is taken of."""

    def __init__(self, network: Network, x: Any, y: Any) -> None:
        self.network = network
        self._tensors = [(name, t) for name, t in (("x", x), ("y", y)) if isinstance(t, torch.Tensor)]
        for name, tensor in self._tensors:
            if tensor.requires_grad:
                raise ValueError(
                    f"{name} requires gradients: there are derivatives in the weights alone"
                )
        self._versions = [tensor._version for _, tensor in self._tensors]
        arrays = [rows.numpy() if isinstance(rows, torch.Tensor) else rows for rows in (x, y)]
        self._data = network._data(*arrays, empty=False)

    def data(self) -> Any:
        for (name, tensor), version in zip(self._tensors, self._versions):
            if tensor._version != version:
                raise RuntimeError(f"{name} has been changed since the objective was evaluated")
        return self._data


class _Objective(torch.autograd.Function):
    @staticmethod
    def forward(ctx: Any, w: torch.Tensor, rows: _Rows, differentiates: bool) -> torch.Tensor:
        if not differentiates:
            value = rows.network.objective(w.numpy(), *rows.data())
        else:
            value, ctx.gradient = rows.network.value_and_grad(w.numpy(), *rows.data())
            ctx.save_for_backward(w)
            ctx.rows = rows
        return torch.tensor(value, dtype=torch.float64)

    @staticmethod
    def backward(ctx: Any, seed: torch.Tensor) -> tuple[torch.Tensor | None, ...]:
        (w,) = ctx.saved_tensors
        return seed * _Gradient.apply(w, ctx.gradient, ctx.rows), None, None


class _Gradient(torch.autograd.Function):
    @staticmethod
    def forward(ctx: Any, w: torch.Tensor, gradient: Any, rows: _Rows) -> torch.Tensor:
        ctx.save_for_backward(w)
        ctx.rows = rows
        return torch.from_numpy(gradient.copy())

    @staticmethod
    def backward(ctx: Any, v: torch.Tensor) -> tuple[torch.Tensor | None, ...]:
        (w,) = ctx.saved_tensors
        # The Hessian is symmetric.
        return _Product.apply(_LastInTheWeights.apply(w), v, ctx.rows), None, None


class _Product(torch.autograd.Function):
    """The Hessian times v: linear in v, which PyTorch makes use of to form products in forward order."""

    @staticmethod
    def forward(ctx: Any, w: torch.Tensor, v: torch.Tensor, rows: _Rows) -> torch.Tensor:
        ctx.save_for_backward(w)
        ctx.rows = rows
        return torch.from_numpy(rows.network.hvp(w.numpy(), v.numpy(), *rows.data()))

    @staticmethod
    def backward(ctx: Any, u: torch.Tensor) -> tuple[torch.Tensor | None, ...]:
        (w,) = ctx.saved_tensors
        return torch.zeros_like(w), _Product.apply(w, u, ctx.rows), None


class _LastInTheWeights(torch.autograd.Function):
    """The weights, beyond which no derivative goes: reached only where a third one is asked for."""

    @staticmethod
    def forward(ctx: Any, w: torch.Tensor) -> torch.Tensor:
        return w.view_as(w)

    @staticmethod
    def backward(ctx: Any, _: torch.Tensor) -> torch.Tensor:
        raise RuntimeError("the objective of a network has first and second derivatives, no third")
