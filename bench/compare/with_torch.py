"""PyTorch as a contestant: eager, with vmap over the tangents, and traced by its compiler."""

from __future__ import annotations

from typing import Callable

import functorch
import numpy as np
import torch
import torch.autograd.forward_ad as forward_ad

from problems import OPERATIONS, Answer, Problem

Tensors = tuple[torch.Tensor, ...]

GAMMA_SQUARED = 2.290554002175179e-7
TAIL = 8.96905461146455  # log(3 pi / (sqrt(2 pi) gamma))

ACTIVATIONS: dict[str, Callable[[torch.Tensor], torch.Tensor]] = {
    # Its own threshold of 20 would cut off in the ninth digit.
    "softplus": lambda z: torch.nn.functional.softplus(z, 1.0, 300.0),
    "atan": torch.atan,
    "relu": torch.relu,
}


def normed(residuals: torch.Tensor) -> torch.Tensor:
    square = residuals.square()
    return torch.where(square < 4.0, 4.5 * square, torch.log(square + GAMMA_SQUARED) + TAIL)


class Network:
    """The network over a tuple of tensors: biases and weights, layer by layer."""

    def __init__(self, problem: Problem) -> None:
        self.problem = problem
        self.x, self.y = torch.from_numpy(problem.x), torch.from_numpy(problem.y)
        self.activation = ACTIVATIONS[problem.activation]
        self.parameters = tuple(p.requires_grad_() for p in self.tensors(problem.w))

    def tensors(self, flat: np.ndarray) -> Tensors:
        return tuple(torch.from_numpy(part.copy()) for pair in self.problem.split(flat) for part in pair)

    def residuals(self, parameters: Tensors) -> torch.Tensor:
        h = self.x
        for b, w in zip(parameters[::2], parameters[1::2]):
            h = self.activation(torch.addmm(b, h, w))
        return h - self.y

    def norms(self, parameters: Tensors) -> torch.Tensor:
        return normed(self.residuals(parameters))

    def objective(self, parameters: Tensors) -> torch.Tensor:
        return self.norms(parameters).mean()


def flat(tensors: Tensors) -> np.ndarray:
    return np.concatenate([t.detach().numpy().ravel() for t in tensors])


class Torch:
    """What the three ways of using it share. A way offers the operations that it has a method for."""

    name = "torch"

    def __init__(self, problem: Problem, operation: str) -> None:
        self.net = Network(problem)
        count = OPERATIONS[operation]
        self.tangents = [self.net.tensors(v) for v in problem.tangents(count)] if count else []
        self.cotangents = torch.from_numpy(problem.cotangents(count)) if count else None
        self.call = getattr(self, operation.rstrip("0123456789"))
        self.operation = operation

    @classmethod
    def offers(cls, operation: str) -> bool:
        return hasattr(cls, operation.rstrip("0123456789"))

    def expected(self) -> Answer | None:
        return None

    def answer(self) -> Answer:
        result = self.call()
        if self.operation == "obj":
            return [result.detach().numpy().ravel()]
        if self.operation == "g":
            return [result[0].detach().numpy().ravel(), flat(result[1])]
        if self.operation.startswith("Hv"):
            value, gradient, products = result
            stacked = np.stack([flat(product) for product in products], axis=1)
            return [value.detach().numpy().ravel(), flat(gradient), stacked.ravel()]
        if self.operation == "Jv8":
            value, tangents = result
            stacked = np.stack([t.detach().numpy().ravel() for t in tangents], axis=1)
            return [value.detach().numpy().ravel(), stacked.ravel()]
        residuals, products = result
        return [residuals.detach().numpy().ravel(), np.concatenate([flat(p) for p in products])]


class Eager(Torch):
    name = "torch_eager"

    def obj(self) -> torch.Tensor:
        with torch.no_grad():
            return self.net.objective(self.net.parameters)

    def g(self) -> tuple[torch.Tensor, Tensors]:
        value = self.net.objective(self.net.parameters)
        return value, torch.autograd.grad(value, self.net.parameters)

    def Hv(self) -> tuple[torch.Tensor, Tensors, list[Tensors]]:
        """Reverse mode twice: one graph of the gradient, one sweep over it for each tangent."""
        parameters = self.net.parameters
        value = self.net.objective(parameters)
        gradient = torch.autograd.grad(value, parameters, create_graph=True)
        products = [
            torch.autograd.grad(gradient, parameters, v, retain_graph=True) for v in self.tangents
        ]
        return value, gradient, products

    def Jv(self) -> tuple[torch.Tensor, list[torch.Tensor]]:
        tangents = []
        with torch.no_grad():
            for v in self.tangents:
                with forward_ad.dual_level():
                    dual = tuple(map(forward_ad.make_dual, self.net.parameters, v))
                    value, tangent = forward_ad.unpack_dual(self.net.norms(dual))
                    tangents.append(tangent)
        return value, tangents

    def vJ_vec(self) -> tuple[torch.Tensor, list[Tensors]]:
        parameters = self.net.parameters
        residuals = self.net.residuals(parameters)
        norms = normed(residuals)
        products = [
            torch.autograd.grad(norms, parameters, u, retain_graph=True) for u in self.cotangents
        ]
        return residuals, products


class Batched(Torch):
    """All tangents in one call of vmap."""

    name = "torch_vmap"

    def __init__(self, problem: Problem, operation: str) -> None:
        super().__init__(problem, operation)
        self.stacked = tuple(torch.stack(parts) for parts in zip(*self.tangents))

    @staticmethod
    def unstacked(tensors: Tensors) -> list[Tensors]:
        return list(zip(*tensors))

    def Hv(self) -> tuple[torch.Tensor, Tensors, list[Tensors]]:
        parameters = self.net.parameters
        value = self.net.objective(parameters)
        gradient = torch.autograd.grad(value, parameters, create_graph=True)
        products = torch.autograd.grad(gradient, parameters, self.stacked, is_grads_batched=True)
        return value, gradient, self.unstacked(products)

    def Jv(self) -> tuple[torch.Tensor, torch.Tensor]:
        def tangent(v: Tensors) -> tuple[torch.Tensor, torch.Tensor]:
            return functorch.jvp(lambda *p: self.net.norms(p), self.net.parameters, v)

        with torch.no_grad():
            values, tangents = functorch.vmap(tangent)(self.stacked)
        return values[0], tangents

    def vJ_vec(self) -> tuple[torch.Tensor, list[Tensors]]:
        parameters = self.net.parameters
        residuals = self.net.residuals(parameters)
        norms = normed(residuals)
        products = torch.autograd.grad(norms, parameters, self.cotangents, is_grads_batched=True)
        return residuals, self.unstacked(products)


class Traced(Torch):
    """The objective traced; its gradient through the trace."""

    name = "torch_jit"

    def __init__(self, problem: Problem, operation: str) -> None:
        super().__init__(problem, operation)
        self.traced = torch.jit.trace(lambda *p: self.net.objective(p), self.net.parameters)
        for _ in range(3):  # it compiles on the second call
            self.call()

    def obj(self) -> torch.Tensor:
        with torch.no_grad():
            return self.traced(*self.net.parameters)

    def g(self) -> tuple[torch.Tensor, Tensors]:
        value = self.traced(*self.net.parameters)
        return value, torch.autograd.grad(value, self.net.parameters)
