"""The version is that of the library's header; a source archive carries it in its own metadata."""

import pathlib
import re
import tempfile

from setuptools import setup

HERE = pathlib.Path(__file__).resolve().parent
HEADER = HERE.parent.parent / "include" / "vemkn.h"
METADATA = HERE / "PKG-INFO"

if HEADER.exists():
    numbers = re.findall(r"^#define VEMKN_VERSION_(?:MAJOR|MINOR|PATCH) (\d+)", HEADER.read_text(), re.MULTILINE)
    version = ".".join(numbers)
else:
    version = re.search(r"^Version: (.*)$", METADATA.read_text(), re.MULTILINE)[1]

# Beside the sources a later build would find the files of this one.
with tempfile.TemporaryDirectory() as scratch:
    setup(version=version, options={"build": {"build_base": scratch}, "egg_info": {"egg_base": scratch}})
