"""R's nnet: one layer of logistic hidden units, identity in the last, the sum of squares.

Its function is not the library's; it has the same shape, and is checked against the plain evaluation below. nnet.R runs
beside this program and answers over a pipe, so that the turns of the two languages alternate.
"""

from __future__ import annotations

import subprocess
from pathlib import Path

import numpy as np

from problems import Answer, Array, Problem


class Nnet:
    name = "nnet"

    def __init__(self, problem: Problem, operation: str, directory: Path) -> None:
        self.problem, self.operation = problem, operation
        script = Path(__file__).with_name("nnet.R")
        self.process = subprocess.Popen(
            ["Rscript", "--vanilla", script, directory, *map(str, problem.widths), operation],
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            text=True,
        )

    @classmethod
    def offers(cls, operation: str, problem: Problem) -> bool:
        has_shape = len(problem.widths) == 3 and problem.activation == "softplus"
        return operation in ("obj", "g") and has_shape

    def ask(self, line: str) -> Array:
        assert self.process.stdin and self.process.stdout
        print(line, file=self.process.stdin, flush=True)
        return np.array(self.process.stdout.readline().split(), dtype=float)

    def seconds(self, calls: int) -> float:
        """Of a call, measured in R."""
        return float(self.ask(f"time {calls}")[0])

    def answer(self) -> Answer:
        value = self.ask("value")
        return [value] if self.operation == "obj" else [value, self.ask("gradient")]

    def expected(self) -> Answer:
        p = self.problem
        (b0, w0), (b1, w1) = p.layers
        h = 1.0 / (1.0 + np.exp(-(p.x @ w0 + b0)))
        r = h @ w1 + b1 - p.y
        value = np.array([np.sum(r**2)])
        if self.operation == "obj":
            return [value]
        bar = 2.0 * r
        hidden_bar = (bar @ w1.T) * h * (1.0 - h)
        parts = hidden_bar.sum(axis=0), p.x.T @ hidden_bar, bar.sum(axis=0), h.T @ bar
        return [value, np.concatenate([part.ravel() for part in parts])]

    def close(self) -> None:
        assert self.process.stdin
        self.process.stdin.close()
        self.process.wait()
