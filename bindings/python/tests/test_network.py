"""Making, closing, copying and sharing networks; numbers that are not finite."""

from __future__ import annotations

import copy
import gc
import multiprocessing
import pickle
import re
import signal
import subprocess
import sys
import weakref
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path
from typing import Any

import numpy as np
import pytest
from conftest import Case, make_case
from vemkn import Network
from vemkn._library import library


def test_properties() -> None:
    network = Network(
        3, 2, hidden=[4, 3], nmult=2, activation="atan", norm="sum", threads=2, batch=8, quiet=True
    )
    assert network.description == "3 2 3 2 32 3 4 3 atan sum"
    assert (network.numin, network.numout, network.sizes) == (3, 2, (3, 4, 3))
    assert (network.nmult, network.activation, network.norm) == (2, "atan", "sum")
    assert network.numel == (3 + 1) * 4 + (4 + 1) * 3 + (6 + 1) * 2
    assert (network.threads, network.batch, network.quiet) == (2, 8, True)
    network.threads, network.batch = 3, 16
    assert (network.threads, network.batch) == (3, 16)
    assert repr(network) == (
        "Network.from_description('3 2 3 2 32 3 4 3 atan sum', threads=3, batch=16, quiet=True)"
    )


def test_counts_may_be_numpys() -> None:
    two: Any = np.int64(2)
    hidden: Any = np.array([3])
    network = Network(two, 1, hidden=hidden, threads=two, batch=two)
    assert network.description == "2 1 2 1 32 2 3 softplus sum_log_dnorm_fat"
    assert Network(two, 1, hidden=two).sizes == Network(2, 1, hidden=2).sizes == (2, 2)


def test_hidden_layers_are_given_by_name() -> None:
    with pytest.raises(TypeError, match=re.escape("hidden=[5] in place of sizes as [2, 5]")):
        Network(2, 1, [2, 5])  # type: ignore[misc]
    with pytest.raises(TypeError, match="hidden"):
        Network(2, 1)  # type: ignore[call-arg]
    with pytest.raises(TypeError, match="sizes"):
        Network(2, 1, sizes=[2, 5])  # type: ignore[call-arg]


@pytest.mark.parametrize(
    ("changed", "message"),
    [
        ({"numin": 0}, "numin: 0"),
        ({"numout": -1}, "numout: -1"),
        ({"numout": 2**32}, "numout: 4294967296"),
        ({"nmult": 0}, "nmult: 0"),
        ({"nmult": 2}, "of 5 units, must be as wide as the first size, 2"),
        ({"hidden": []}, "at least one hidden layer"),
        ({"hidden": [0]}, "hidden: 0"),
        ({"hidden": [2**63, 5]}, "hidden: 9223372036854775808"),
        ({"activation": "tanh"}, "activation: 'tanh' is none of softplus"),
        ({"norm": "squares"}, "norm: 'squares' is none of"),
        ({"threads": 0}, "threads: 0"),
        ({"threads": 100000}, "threads: 100000"),
        ({"batch": 0}, "batch: 0"),
        ({"batch": 2**31}, "batch: 2147483648"),
        ({"numin": 70000, "hidden": [70000]}, "weights: "),
    ],
)
def test_what_makes_no_network(changed: dict[str, Any], message: str) -> None:
    arguments: dict[str, Any] = {"numin": 2, "numout": 1, "hidden": [5], **changed}
    with pytest.raises(ValueError, match=re.escape(message)):
        Network(**arguments)
    with pytest.raises(TypeError):
        Network(2, 1, hidden=[5], nmult=1.5)  # type: ignore[arg-type]


@pytest.mark.parametrize(
    ("text", "message"),
    [
        ("", "numin is missing"),
        ("2 1", "nlayers is missing"),
        ("2 1 2 1 32 2 5 softplus", "the norm is missing"),
        ("2 1 2 1 32 2 5 softplus sum sum", "the text goes on after the norm"),
        ("2 1 2 1 32 2 5softplus sum", "a blank is missing after size 2"),
        ("2 1 -1 1 32 softplus sum", "nlayers has a minus sign"),
        ("two 1 2 1 32 2 5 softplus sum", 'numin is "two", not a whole number'),
        ("2 1 2 1 32 2 5.0 softplus sum", "a blank is missing after size 2"),
        ("2 1 2 1 32 2 5 softplus s\xfcm", 'the norm "s\xfcm" is none of'),
        ("2 1 2 1 32 2 5 tanh sum", "activation: 'tanh' is none of"),
        ("2 1 3 1 32 2 0 5 id sum", "sizes: 0"),
    ],
)
def test_what_is_no_description(text: str, message: str) -> None:
    with pytest.raises(ValueError, match=re.escape(message)):
        Network.from_description(text)


def test_the_most_columns_of_a_call() -> None:
    network = Network.from_description("3 1 2 1 32 2 5 id sum")
    assert (network.numin, network.maxcols) == (3, 2)
    assert network.compute(np.zeros(network.numel), np.ones((4, 2))).shape == (4, 1)
    with pytest.raises(ValueError, match="x has the shape"):
        network.compute(np.zeros(network.numel), np.ones((4, 3)))


def test_a_network_that_the_library_does_not_make(monkeypatch: pytest.MonkeyPatch) -> None:
    """It gives a handle without layers if the network takes more than half of the memory."""
    monkeypatch.setattr(library, "vemk_numel", lambda _: 0)
    with pytest.raises(ValueError, match="the library makes no network of '2 1 2 1 32 2 5"):
        Network(2, 1, hidden=[5])


def test_a_closed_network() -> None:
    with Network(1, 1, hidden=[1]) as network:
        assert not network.closed
    assert network.closed
    network.close()
    for use in (lambda: network.compute(None, [[1.0]]), lambda: network.weights, network.__enter__):
        with pytest.raises(ValueError, match="the network is closed"):
            use()
    assert network.numel == 4


def test_the_handle_is_released_with_its_last_user() -> None:
    network = Network(1, 1, hidden=[1])
    handle = weakref.ref(network._handle)
    held_by_a_call = network._live()
    network.close()
    assert handle() is held_by_a_call
    del held_by_a_call
    assert handle() is None


def test_ten_thousand_networks_leave_no_memory_behind() -> None:
    """A handle of this network takes over 16 kB, so 10,000 lost ones would take over 160 MB."""

    def resident() -> int:
        return int(Path("/proc/self/statm").read_text().split()[1]) * 4096

    def make(count: int) -> None:
        for k in range(count):
            network = Network(16, 1, hidden=[64])
            if k % 2:
                network.close()

    make(500)
    gc.collect()
    before = resident()
    make(10000)
    assert resident() - before < 4_000_000


def test_pickles_and_copies_are_networks_of_their_own(one: Case) -> None:
    one.network.weights = one.w
    for twin in (pickle.loads(pickle.dumps(one.network)), copy.deepcopy(one.network)):
        assert repr(twin) == repr(one.network)
        assert (twin.weights == one.w).all()
        assert twin.objective(None, one.x, one.y) == one.network.objective(None, one.x, one.y)
        twin.weights = np.zeros(twin.numel)
        assert (one.network.weights == one.w).all()
        twin.close()
        assert not one.network.closed


def test_another_norm_for_the_same_network(one: Case) -> None:
    one.network.weights = one.w
    plain = one.network.with_norm("sum")
    assert (plain.norm, plain.threads, plain.batch) == ("sum", 2, 16)
    residual = one.network.residual(None, one.x, one.y)
    assert (plain.objective_each(None, one.x, one.y) == residual).all()


def test_numbers_that_are_not_finite_flow_through(one: Case) -> None:
    network, x, y = one.network, one.x, one.y
    huge = np.full(network.numel, 1e200)
    assert not np.isfinite(network.objective(huge, x, y))
    assert not np.isfinite(network.value_and_grad(huge, x, y)[1]).all()
    assert not np.isfinite(network.hvp(huge, one.w, x, y)).all()
    with_nan = x.copy()
    with_nan[3, 0] = np.nan
    each = network.objective_each(one.w, with_nan, y)
    assert (np.flatnonzero(np.isnan(each)) == [3]).all()
    assert np.isnan(network.objective(one.w, with_nan, y))
    # And leave nothing behind.
    assert np.isfinite(network.objective(one.w, x, y))


def test_quiet_is_any_truth(one: Case) -> None:
    """Also one whose number would be 0 in 32 bits."""
    quiet: Any = 2**32
    one.network.quiet = quiet
    assert one.network.quiet is True
    assert not np.isfinite(one.network.objective(np.full(one.network.numel, 1e200), one.x, one.y))


def test_without_quiet_mode_an_overflow_ends_the_process() -> None:
    program = (
        "import numpy as np, vemkn\n"
        "network = vemkn.Network(1, 1, hidden=[2], activation='id', quiet=False)\n"
        "assert not network.quiet\n"
        "network.objective(np.full(7, 1e200), [1.0], [0.0])\n"
    )
    done = subprocess.run([sys.executable, "-c", program], capture_output=True, check=False)
    assert done.returncode == -signal.SIGFPE, done.stderr


def test_threads_on_one_network() -> None:
    """Different numbers of tangents wait for each other; results are those of one thread."""
    case = make_case("3 2 3 1 32 3 4 3 atan sum_log_dnorm_fat")
    network, numel = case.network, case.network.numel
    v = np.eye(numel)

    def work(k: int) -> tuple[np.ndarray[Any, Any], ...]:
        width = 1 + k % 4
        gradient = network.value_and_grad(case.w, case.x, case.y)[1]
        return gradient, network.hvp(case.w, v[:, :width], case.x, case.y)

    expected = [work(k) for k in range(4)]
    with ThreadPoolExecutor(8) as pool:
        for k, results in enumerate(pool.map(work, range(200))):
            for result, right in zip(results, expected[k % 4]):
                assert (result == right).all()


def test_closing_under_a_running_call(one: Case, monkeypatch: pytest.MonkeyPatch) -> None:
    """Another thread's close comes when the handle is in use already."""
    really = library.vemk_compute
    expected = one.network.compute(one.w, one.x)
    handle = weakref.ref(one.network._live())

    def closed_meanwhile(*arguments: Any) -> int:
        one.network.close()
        assert handle() is not None
        return int(really(*arguments))

    monkeypatch.setattr(library, "vemk_compute", closed_meanwhile)
    assert (one.network.compute(one.w, one.x) == expected).all()
    assert handle() is None


INHERITED: Case


def gradient_of_inherited(_: int) -> bytes:
    value, gradient = INHERITED.network.value_and_grad(INHERITED.w, INHERITED.x, INHERITED.y)
    return np.float64(value).tobytes() + gradient.tobytes()


def test_children_of_a_fork_compute_the_same_bits() -> None:
    global INHERITED
    INHERITED = make_case("3 2 3 1 32 3 4 3 atan sum_log_dnorm_fat", threads=4, batch=8)
    expected = gradient_of_inherited(0)
    with multiprocessing.get_context("fork").Pool(2) as pool:
        of_children = pool.map_async(gradient_of_inherited, range(6)).get(timeout=60)
    assert of_children == [expected] * 6
    assert gradient_of_inherited(0) == expected


def objective_of(job: tuple[Network, Any, Any]) -> float:
    network, x, y = job
    return network.objective(None, x, y)


def test_networks_travel_to_fresh_processes(one: Case) -> None:
    one.network.weights = one.w
    with multiprocessing.get_context("spawn").Pool(1) as pool:
        value = pool.map_async(objective_of, [(one.network, one.x, one.y)]).get(timeout=60)[0]
    assert value == one.network.objective(None, one.x, one.y)
