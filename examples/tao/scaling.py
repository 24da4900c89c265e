#!/usr/bin/env python3
"""The tables of docs/scaling.md: time of one evaluation of objective and gradient on P ranks, by a formula.

    T(P) = c N / P  +  A(nw + 1)  +  G(nw)  +  D A(1)
    A(n) = S (alpha + 8 n / B + s n)      reduction of n doubles in S = ceil(log2 P) steps
    G(n) = S alpha + (P - 1) / P 8 n / B  gather of n doubles
"""
import math

# Network, weights, and seconds for one row by vemk_g on one thread: docs/performance.md, for 10-32-1 docs/growth.md at
# 10,000,000 rows.
SHAPES = [
    ("2-5-1", 21, 48.6e-9),
    ("10-32-1", 385, 111e-9),
    ("20-64-64-4", 5764, 599e-9),
    ("100-256-256-10", 94218, 7560e-9),
]
C = SHAPES[1][2]
SUM = 0.5e-9  # seconds to add one double that has arrived
DOTS = 16  # reductions of TAO's own for each evaluation of lmvm, counted by -log_view
NETWORKS = {"fast": (2e-6, 10e9), "plain": (50e-6, 1e9)}  # latency in seconds, bandwidth in bytes per second


def steps(ranks):
    return math.ceil(math.log2(ranks))


def reduction(ranks, n, network):
    alpha, bandwidth = NETWORKS[network]
    return steps(ranks) * (alpha + 8 * n / bandwidth + SUM * n)


def gather(ranks, n, network):
    alpha, bandwidth = NETWORKS[network]
    return steps(ranks) * alpha + (ranks - 1) / ranks * 8 * n / bandwidth


def communication(ranks, nw, network):
    return reduction(ranks, nw + 1, network) + gather(ranks, nw, network) + DOTS * reduction(ranks, 1, network)


def evaluation(ranks, rows, nw, network):
    return C * rows / ranks + communication(ranks, nw, network)


def seconds(value):
    if value >= 1000:
        return f"{value:,.0f} s"
    for unit, size in (("s", 1.0), ("ms", 1e-3), ("us", 1e-6)):
        if value >= size:
            return f"{value / size:.3g} {unit}"
    return f"{value / 1e-6:.2g} us"


def row(*cells):
    print("| " + " | ".join(str(cell) for cell in cells) + " |")


def head(*cells):
    row(*cells)
    row(*["---"] * len(cells))


def main():
    ranks = (1, 2, 10, 100, 1000)
    print("## Strong scaling: a fixed number of rows\n")
    head("rows", "network", *(f"P = {p}" for p in ranks))
    for rows in (10**7, 10**8, 10**10):
        for network in NETWORKS:
            cells = []
            for p in ranks:
                time = evaluation(p, rows, 385, network)
                cells.append(f"{seconds(time)} ({evaluation(1, rows, 385, network) / time / p:.0%})")
            row(f"{rows:,}", network, *cells)
    print("\n## Weak scaling: 1,000,000 rows on each rank\n")
    head("network", *(f"P = {p}" for p in ranks))
    for network in NETWORKS:
        one = evaluation(1, 10**6, 385, network)
        times = [evaluation(p, p * 10**6, 385, network) for p in ranks]
        row(network, *(f"{seconds(t)} ({one / t:.0%})" for t in times))
    print("\n## Communication of one evaluation on 1,000 ranks\n")
    head("shape", "nw", "network", "gather", "reduction", "TAO's own", "together", "computed meanwhile")
    for shape, nw, cost in SHAPES:
        for network in NETWORKS:
            together = communication(1000, nw, network)
            row(shape, f"{nw:,}", network, seconds(gather(1000, nw, network)),
                seconds(reduction(1000, nw + 1, network)), seconds(DOTS * reduction(1000, 1, network)),
                seconds(together), f"{together / cost:,.0f} rows")


main()
