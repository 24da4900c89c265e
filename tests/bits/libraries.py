"""What scripts/same-bits and scripts/same-speed have in common: finding or building two libraries to compare, and
compiling a program that runs with either."""

import os
import pathlib
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
WORK = ROOT / "build" / "same"


def fail(message):
    sys.exit(f"{pathlib.Path(sys.argv[0]).name}: {message}")


def quietly(*command, cwd=ROOT):
    run = subprocess.run(command, cwd=cwd, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    if run.returncode != 0:
        fail(f"{' '.join(map(str, command))}\n{run.stdout}")
    return run.stdout


def built(revision):
    """The library of a git revision, built in a work tree of its own unless it has been before."""
    commit = quietly("git", "rev-parse", "--verify", f"{revision}^{{commit}}").strip()
    source = WORK / commit
    library = source / "build" / "src" / "libvemkn.so"
    if library.exists():
        return library
    if not source.exists():
        quietly("git", "worktree", "prune")
        quietly("git", "worktree", "add", "--detach", source, commit)
    off = [f"-DVEMKN_BUILD_{part}=OFF" for part in ("TESTS", "BENCH", "FIT")]
    quietly("cmake", "-S", source, "-B", source / "build", "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release", *off)
    quietly("cmake", "--build", source / "build", "--target", "vemkn")
    return library


def library_of(name):
    """A shared library, given by its path or by a git revision."""
    path = pathlib.Path(name)
    return path.resolve() if path.is_file() else built(name)


def environment(library):
    """Where a program finds that library under the name that it asks for."""
    folder = pathlib.Path(tempfile.mkdtemp(prefix="libvemkn-"))
    (folder / "libvemkn.so.1").symlink_to(library)
    dropped = ("OPENBLAS_CORETYPE", "OPENBLAS_L2_SIZE", "INFO", "NN_TRACE")
    variables = {name: value for name, value in os.environ.items() if name not in dropped}
    return {**variables, "LD_LIBRARY_PATH": str(folder)}


def program(name, library, *sources):
    """Compiles a program that runs with any of the libraries."""
    WORK.mkdir(parents=True, exist_ok=True)
    target = WORK / name
    folders = [f"-I{ROOT / folder}" for folder in ("include", "tests", "bench")]
    # Found by a path, the library would be looked for under that path.
    link = ["-L", environment(library)["LD_LIBRARY_PATH"], "-l:libvemkn.so.1"]
    quietly("g++", "-std=c++20", "-O2", *folders, *(ROOT / source for source in sources), "-o", target, *link)
    return target
