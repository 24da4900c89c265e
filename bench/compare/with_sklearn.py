"""scikit-learn's multi-layer perceptron: relu, identity in the last layer, half the mean square.

It has no call for a gradient at given weights, so its own _backprop is called, as its optimiser does. Its function is
not the library's; it has the same shape, and is checked against the plain evaluation below.
"""

from __future__ import annotations

import warnings

import numpy as np
from sklearn.neural_network import MLPRegressor

from problems import Answer, Array, Problem


class Sklearn:
    name = "sklearn"

    def __init__(self, problem: Problem, operation: str) -> None:
        self.problem = problem
        self.model = MLPRegressor(problem.widths[1:-1], alpha=0.0, max_iter=1)
        with warnings.catch_warnings():
            warnings.simplefilter("ignore")
            y = problem.y if problem.y.shape[1] > 1 else problem.y.ravel()
            self.model.fit(problem.x[:32], y[:32])  # sets up the shapes
        self.model.intercepts_ = [b.copy() for b, _ in problem.layers]
        self.model.coefs_ = [w.copy() for _, w in problem.layers]
        self.activations: list[Array | None] = [problem.x] + [None] * len(problem.layers)
        self.deltas: list[Array | None] = [None] * len(problem.layers)
        self.coef_grads = [np.empty_like(w) for w in self.model.coefs_]
        self.intercept_grads = [np.empty_like(b) for b in self.model.intercepts_]

    @classmethod
    def offers(cls, operation: str, problem: Problem) -> bool:
        return operation == "g" and problem.activation == "relu"

    def call(self) -> float:
        value, self.coef_grads, self.intercept_grads = self.model._backprop(
            *(self.problem.x, self.problem.y, self.activations),
            *(self.deltas, self.coef_grads, self.intercept_grads),
        )
        return value

    def answer(self) -> Answer:
        value = self.call()
        pairs = zip(self.intercept_grads, self.coef_grads)
        return [np.array([value]), np.concatenate([part.ravel() for pair in pairs for part in pair])]

    def expected(self) -> Answer:
        p, h, inputs = self.problem, self.problem.x, []
        for i, (b, w) in enumerate(p.layers):
            inputs.append(h)
            z = h @ w + b
            h = z if i + 1 == len(p.layers) else np.maximum(z, 0.0)
        bar, parts = (h - p.y) / len(p.x), []
        for (_, w), h_in in zip(reversed(p.layers), reversed(inputs)):
            parts[:0] = [bar.sum(axis=0), (h_in.T @ bar).ravel()]
            bar = (bar @ w.T) * (h_in > 0)
        return [np.array([np.mean((h - p.y) ** 2) / 2]), np.concatenate(parts)]
