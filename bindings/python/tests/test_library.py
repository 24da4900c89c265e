"""Where the shared library is looked for, and what is said if it is missing or too old."""

from __future__ import annotations

import ctypes
import os
import shutil
import subprocess
import sys
from pathlib import Path
from types import SimpleNamespace

import pytest
import vemkn
from vemkn import _library

PACKAGE = Path(vemkn.__file__).parent
FILE_NAME = "libvemkn.so.1"
SHOW = "import vemkn._library as found; print(found.library._name)"


def run(program: str, **environment: str) -> subprocess.CompletedProcess[str]:
    clean = {k: v for k, v in os.environ.items() if k not in ("VEMKN_LIBRARY", "LD_LIBRARY_PATH")}
    return subprocess.run(
        [sys.executable, "-c", program],
        cwd="/",  # Python looks for modules in the current folder first
        env={**clean, "PYTHONPATH": str(PACKAGE.parent), **environment},
        capture_output=True,
        text=True,
        check=False,
    )


@pytest.fixture(scope="module")
def loaded() -> Path:
    """The file that these tests run with, wherever it was found."""
    for line in Path("/proc/self/maps").read_text().splitlines():
        if "/libvemkn.so" in line:
            return Path(line.split(maxsplit=5)[5])
    raise AssertionError("the library is not loaded")


def test_the_environment_names_it(loaded: Path) -> None:
    assert run(SHOW, VEMKN_LIBRARY=str(loaded)).stdout.strip() == str(loaded)


def test_what_the_environment_names_is_the_only_place(loaded: Path) -> None:
    done = run(SHOW, VEMKN_LIBRARY="/nowhere/libvemkn.so.1", LD_LIBRARY_PATH=str(loaded.parent))
    assert "ImportError: vemkn cannot load the shared library libvemkn" in done.stderr
    assert "/nowhere/libvemkn.so.1: cannot open shared object file" in done.stderr


def test_beside_the_package(loaded: Path, tmp_path: Path) -> None:
    shutil.copytree(PACKAGE, tmp_path / "vemkn")
    beside = tmp_path / "vemkn" / FILE_NAME
    beside.symlink_to(loaded)
    assert run(SHOW, PYTHONPATH=str(tmp_path)).stdout.strip() == str(beside)


def test_on_the_loaders_path(loaded: Path, tmp_path: Path) -> None:
    (tmp_path / FILE_NAME).symlink_to(loaded)
    assert run(SHOW, LD_LIBRARY_PATH=str(tmp_path)).stdout.strip() == FILE_NAME


def test_the_fit_library_has_a_variable_of_its_own() -> None:
    done = run("import vemkn, vemkn.fit", VEMKN_FIT_LIBRARY="/nowhere/libvemknfit.so.1", VEMKN_LIBRARY=_library.library._name)
    assert "cannot load the shared library libvemknfit" in done.stderr
    assert "environment variable VEMKN_FIT_LIBRARY" in done.stderr


def test_another_library() -> None:
    with pytest.raises(ImportError, match="is not libvemkn, or an older one"):
        _library._version_of(ctypes.CDLL("libm.so.6"))


def test_an_older_library() -> None:
    older = SimpleNamespace(_name="libvemkn.so.1", vemk_version=lambda: b"2026.9.1")
    with pytest.raises(ImportError, match="or an older one: it has no vemk_check"):
        _library._version_of(older)  # type: ignore[arg-type]


def test_the_package_has_the_librarys_version() -> None:
    assert vemkn.__version__ == vemkn.library_version
