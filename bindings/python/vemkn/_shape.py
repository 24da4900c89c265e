"""What a network looks like: the words of its description, checked."""

from __future__ import annotations

from collections.abc import Iterable, Iterator, Sequence
from dataclasses import dataclass
from functools import cached_property
from operator import index

from ._arrays import LIMIT
from ._library import check_description, words


def layer_widths(hidden: Sequence[int] | int) -> tuple[int, ...]:
    """Units of the hidden layers, one number standing for one layer."""
    widths = tuple(map(index, hidden)) if isinstance(hidden, Iterable) else (index(hidden),)
    if not widths:
        raise ValueError("hidden: a network has at least one hidden layer")
    for width in widths:
        _check_positive("hidden", width)
    return widths


@dataclass(frozen=True)
class Shape:
    """Counts and names of a network; every field is checked when one is made."""

    numin: int
    numout: int
    sizes: tuple[int, ...]
    nmult: int
    activation: str
    norm: str

    def __post_init__(self) -> None:
        for name in ("numin", "numout", "nmult"):
            _check_positive(name, getattr(self, name))
        for size in self.sizes:
            _check_positive("sizes", size)
        if len(self.sizes) < 2:
            raise ValueError(f"sizes: {len(self.sizes)} given, a network has at least 2 layers")
        if self.nmult > 1 and self.sizes[-1] != self.sizes[0]:
            raise ValueError(
                f"nmult is {self.nmult}, so the last hidden layer, of {self.sizes[-1]} units, must be as wide "
                f"as the first size, {self.sizes[0]}"
            )
        _check_word("activation", self.activation, words("vemk_activations"))
        _check_word("norm", self.norm, words("vemk_norms"))

    @staticmethod
    def parse(text: str) -> Shape:
        """From a description text; its fifth word, the batch, is not used."""
        status, sentence = check_description(text)
        words = text.split()
        try:
            if status < 0:
                raise ValueError
            numin, numout, nlayers, nmult, _, *sizes = map(int, words[:-2])
            if len(sizes) != nlayers:  # words that run into each other, or after the norm
                raise ValueError
        except ValueError:
            raise ValueError(f"{text!r} describes no network: {sentence}") from None
        return Shape(numin, numout, tuple(sizes), nmult, words[-2], words[-1])

    @property
    def text(self) -> str:
        """The description that the library makes this network from. Its batch, 32, is not used."""
        counts = (self.numin, self.numout, len(self.sizes), self.nmult, 32, *self.sizes)
        return " ".join([*map(str, counts), self.activation, self.norm])

    def layers(self) -> Iterator[tuple[int, int]]:
        """Inputs and outputs of every layer."""
        yield from zip(self.sizes, self.sizes[1:])
        yield self.sizes[-1] * self.nmult, self.numout

    @cached_property
    def numel(self) -> int:
        return sum((rows + 1) * columns for rows, columns in self.layers())


def _check_positive(name: str, value: int) -> None:
    if not 0 < value < LIMIT:
        raise ValueError(f"{name}: {value} is not a positive count of 32 bits")


def _check_word(name: str, word: str, known: tuple[str, ...]) -> None:
    if word not in known:
        raise ValueError(f"{name}: {word!r} is none of {', '.join(known)}")
