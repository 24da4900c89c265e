"""Networks of every kind, each with weights and data whose residuals lie in core and tail."""

from __future__ import annotations

from collections.abc import Iterator
from dataclasses import dataclass

import numpy as np
import pytest
import reference
from vemkn import Network
from vemkn._arrays import Array

DESCRIPTIONS = [
    "2 1 2 1 32 2 5 softplus sum_log_dnorm_fat",
    "3 2 3 1 32 3 4 3 atan sum_log_dnorm_fat",
    "2 2 2 3 32 2 2 softplus sum_log_dnorm_fat",
    "3 1 3 2 32 3 4 3 atan sum",
    "2 2 2 1 32 2 3 relu sum_log_dnorm_fat",
    "2 1 2 1 32 2 3 id sum",
]
ROWS = 75


@dataclass(frozen=True)
class Case:
    network: Network
    w: Array
    x: Array
    y: Array
    random: np.random.Generator


def make_case(description: str, threads: int = 2, batch: int = 16) -> Case:
    random = np.random.default_rng(20260911)
    network = Network.from_description(description, threads=threads, batch=batch)
    w = 0.7 * random.standard_normal(network.numel)
    x = random.standard_normal((ROWS, network.numin))
    scatter = random.uniform(-0.8, 0.8, (ROWS, network.numout))
    scatter[::5] += 7.0
    scatter[1::10] -= 30.0
    y = reference.outputs(network, w, x) + scatter
    return Case(network, w, x, y, random)


@pytest.fixture(params=DESCRIPTIONS)
def case(request: pytest.FixtureRequest) -> Iterator[Case]:
    made = make_case(request.param)
    yield made
    made.network.close()


@pytest.fixture
def one() -> Iterator[Case]:
    made = make_case(DESCRIPTIONS[0])
    yield made
    made.network.close()
