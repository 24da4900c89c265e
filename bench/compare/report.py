"""The lines of compare_cpp and rivals.py as Markdown tables and a plot.

    report.py TIMES.tsv HEADER.md OUTPUT_DIRECTORY

Writes table.md, which begins with the header, and times.png.
"""

from __future__ import annotations

import sys
from pathlib import Path

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt

Key = tuple[str, str, str]  # network, activation, operation
Times = dict[Key, dict[str, float]]

HANDS = ["hand_blas", "hand_eigen"]
IN_CPP = [*HANDS, "adolc"]
RIVALS = ["torch_eager", "torch_vmap", "torch_jit", "sklearn", "nnet"]
MARKERS = {name: (f"C{i}", marker) for i, (name, marker) in enumerate(zip(IN_CPP + RIVALS, "osX^v<DP"))}
ROWS = {"2-5-1": 100, "8-16-16-1": 1000, "10-32-1": 200000}


def read_times(path: Path) -> Times:
    times: Times = {}
    for line in path.read_text().splitlines():
        fields = line.split("\t")
        if line.startswith("#") or len(fields) != 7:
            continue
        net, activation, operation, contestant, median = fields[:5]
        times.setdefault((net, activation, operation), {})[contestant] = float(median)
    return times


def in_words(seconds: float | None) -> str:
    if seconds is None:
        return ""
    for unit, factor in (("s", 1.0), ("ms", 1e3), ("us", 1e6)):
        if seconds * factor >= 1.0:
            return f"{seconds * factor:.3g} {unit}"
    return f"{seconds * 1e9:.3g} ns"


def ratio(numerator: float | None, denominator: float | None) -> str:
    if numerator is None or denominator is None:
        return ""
    return f"{numerator / denominator:.2f}" if numerator < 10 * denominator else f"{numerator / denominator:.0f}"


def better_hand(row: dict[str, float]) -> float | None:
    return min((row[hand] for hand in HANDS if hand in row), default=None)


def table(head: list[str], body: list[list[str]]) -> str:
    lines = [head, ["---"] * len(head), *body]
    return "\n".join("| " + " | ".join(line) + " |" for line in lines) + "\n"


def select(times: Times, activation: str, names: list[str]) -> dict[Key, dict[str, float]]:
    return {
        key: row for key, row in times.items() if key[1] == activation and any(n in row for n in names)
    }


def label(net: str) -> str:
    return f"{net}, {ROWS.get(net, 10000):,} rows"


def hand_table(times: Times, activation: str) -> str:
    rows = select(times, activation, HANDS)
    if not rows:
        return ""
    two = any("library2" in row for row in rows.values())
    tools = [n for n in IN_CPP if any(n in row for row in rows.values())]
    names = ["library"] + (["library2"] if two else []) + tools
    heads = {"library2": "library, 2 threads"}
    body = [
        [label(net), operation, *(in_words(row.get(n)) for n in names)]
        + [ratio(row.get("library"), better_hand(row))]
        for (net, _, operation), row in rows.items()
    ]
    head = ["network", "operation", *(heads.get(n, n) for n in names), "library / hand"]
    return f"### C++ programs, {activation}\n\n{table(head, body)}\n"


def rival_table(times: Times, activation: str) -> str:
    rows = select(times, activation, RIVALS)
    names = [n for n in RIVALS if any(n in row for row in rows.values())]
    if not rows:
        return ""
    body = []
    for (net, _, operation), row in rows.items():
        library = row.get("library_ctypes")
        cells = [ratio(row.get(n), library) for n in names]
        body.append([label(net), operation, in_words(library), *cells])
    head = ["network", "operation", "library (ctypes)", *(f"{n} / library" for n in names)]
    return f"### Other software, {activation}\n\n{table(head, body)}\n"


def plot(times: Times, path: Path) -> None:
    """Time over the library's time in the same process, by operation; a panel for each network."""
    softplus = {key: row for key, row in times.items() if key[1] == "softplus"} or times
    nets = list(dict.fromkeys(key[0] for key in softplus))
    figure, axes = plt.subplots(
        1, len(nets), figsize=(3.0 * len(nets), 3.8), sharey=True, squeeze=False, constrained_layout=True
    )
    for axis, net in zip(axes[0], nets):
        rows = {key[2]: row for key, row in softplus.items() if key[0] == net}
        for name, (colour, marker) in MARKERS.items():
            unit = "library" if name in IN_CPP else "library_ctypes"
            points = [(op, r[name] / r[unit]) for op, r in rows.items() if name in r and unit in r]
            if points:
                axis.plot(*zip(*points), marker, color=colour, label=name, markersize=5)
        axis.axhline(1.0, color="black", linewidth=0.8)
        axis.set_yscale("log")
        axis.set_title(label(net), fontsize=9)
        axis.tick_params(axis="x", rotation=60, labelsize=8)
        axis.grid(True, which="major", axis="y", alpha=0.3)
    axes[0][0].set_ylabel("time / library's time, one thread")
    entries = {text: handle for axis in axes[0] for handle, text in zip(*axis.get_legend_handles_labels())}
    figure.legend(
        entries.values(), entries.keys(), ncol=8, loc="lower center", bbox_to_anchor=(0.5, 1.0), fontsize=8
    )
    figure.savefig(path, dpi=130, bbox_inches="tight")


def main() -> None:
    times_path, header, directory = map(Path, sys.argv[1:4])
    times = read_times(times_path)
    activations = list(dict.fromkeys(key[1] for key in times))
    parts = [header.read_text()]
    parts += [hand_table(times, a) for a in activations] + [rival_table(times, a) for a in activations]
    (directory / "table.md").write_text("\n".join(part for part in parts if part))
    plot(times, directory / "times.png")


if __name__ == "__main__":
    main()
