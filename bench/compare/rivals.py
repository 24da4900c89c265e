"""The library beside PyTorch, scikit-learn and R's nnet, in one process: see README.md.

Prints the lines of compare_cpp: network, activation, operation, contestant, median seconds of a call, smallest,
largest.
Exit status 1: a contestant's numbers are not those that they have to be.
"""

from __future__ import annotations

import argparse
import statistics
import sys
import tempfile
import time
from pathlib import Path
from subprocess import run

import numpy as np
import torch

from problems import OPERATIONS, Answer, Contestant, Library, Problem, read_problem
from with_nnet import Nnet
from with_sklearn import Sklearn
from with_torch import Batched, Eager, Torch, Traced

TOLERANCE = 1e-10
SECONDS_OF_ALL_ROUNDS = 20.0  # fewer rounds for operations that take seconds
TORCH: dict[str, type[Torch]] = {way.name: way for way in (Eager, Batched, Traced)}
NAMES = [*TORCH, Sklearn.name, Nnet.name]


def arguments() -> argparse.Namespace:
    def words(text: str) -> list[str]:
        return text.split(",")

    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--build", type=Path, required=True, help="build tree of CMake")
    parser.add_argument("--only", type=words, default=NAMES)
    parser.add_argument("--nets", type=words, required=True)
    parser.add_argument("--ops", type=words, default=list(OPERATIONS))
    parser.add_argument("--activations", type=words, default=["softplus", "atan", "relu"])
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--round-seconds", type=float, default=0.02)
    return parser.parse_args()


def contestants(names: list[str], p: Problem, operation: str, directory: Path) -> list[Contestant]:
    entrants: list[Contestant] = []
    for name in names:
        if name in TORCH:
            if TORCH[name].offers(operation):
                entrants.append(TORCH[name](p, operation))
        elif name == Sklearn.name:
            if Sklearn.offers(operation, p):
                entrants.append(Sklearn(p, operation))
        elif name == Nnet.name:
            if Nnet.offers(operation, p):
                entrants.append(Nnet(p, operation, directory))
    return entrants


def check(entrant: Contestant, library: Answer, what: str) -> float:
    """Seconds that the answer took, the first one."""
    expected = entrant.expected() or library
    start = time.perf_counter()
    answer = entrant.answer()
    seconds = time.perf_counter() - start
    for part, (right, got) in enumerate(zip(expected, answer, strict=True)):
        largest = max(np.max(np.abs(right)), 1e-300)  # with relu, 2-5-1 has no derivative but 0
        off = np.max(np.abs(right - got)) / largest
        if not off <= TOLERANCE:
            sys.exit(f"{entrant.name}, {what}: part {part} is off by {off:.3g}")
    return seconds


def seconds_of_a_call(entrant: Contestant, calls: int) -> float:
    if isinstance(entrant, Nnet):
        return entrant.seconds(calls)
    call = entrant.call
    start = time.perf_counter()
    for _ in range(calls):
        call()
    return (time.perf_counter() - start) / calls


def warm_seconds(entrant: Contestant, first: float) -> float:
    """The first call serves where it took long; a short one says little about the next."""
    return first if first > 1.0 else seconds_of_a_call(entrant, 1)


def take_turns(
    entrants: list[Contestant], seconds: list[float], options: argparse.Namespace
) -> dict[str, list[float]]:
    """Each for as many calls as fit into a turn; who begins changes from round to round."""
    calls = [max(1, min(20000, int(options.round_seconds / s))) for s in seconds]
    rounds = max(1, min(options.rounds, int(SECONDS_OF_ALL_ROUNDS / sum(seconds))))
    times: dict[str, list[float]] = {entrant.name: [] for entrant in entrants}
    for turn in range(rounds):
        for i in range(len(entrants)):
            at = (i + turn) % len(entrants)
            times[entrants[at].name].append(seconds_of_a_call(entrants[at], calls[at]))
    return times


def compare(options: argparse.Namespace, net: str, p: Problem, directory: Path) -> None:
    library_path = options.build / "src" / "libvemkn.so"
    for operation in options.ops:
        rivals = contestants(options.only, p, operation, directory)
        if not rivals:
            continue
        library = Library(library_path, p, operation)
        expected = library.answer()
        entrants: list[Contestant] = [library, *rivals]
        first = [check(e, expected, f"{net} {p.activation} {operation}") for e in entrants]
        times = take_turns(entrants, list(map(warm_seconds, entrants, first)), options)
        for name, t in times.items():
            figures = (f"{s:.4g}" for s in (statistics.median(t), min(t), max(t)))
            print(net, p.activation, operation, name, *figures, sep="\t", flush=True)
        for rival in rivals:
            if isinstance(rival, Nnet):
                rival.close()


def main() -> None:
    options = arguments()
    torch.set_num_threads(1)
    for net in options.nets:
        for activation in options.activations:
            with tempfile.TemporaryDirectory() as name:
                program = options.build / "bench" / "compare" / "write_problem"
                run([program, net, activation, name], check=True, stdout=sys.stderr)
                directory = Path(name)
                compare(options, net, read_problem(directory, activation), directory)


if __name__ == "__main__":
    main()
