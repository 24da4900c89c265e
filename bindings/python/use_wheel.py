"""A fit and a gradient by an installed wheel, whose libraries are its own. Run by bindings/python/check."""

from __future__ import annotations

import subprocess
from pathlib import Path

import numpy as np

import vemkn
from vemkn.fit import robust_fit

rng = np.random.default_rng(1)
x = rng.uniform(-1, 1, 200)
y = x**2 + 0.05 * rng.standard_normal(200)
y[::10] += 5
curve = robust_fit(x[:, None], y, decay=0.1)
assert np.median(np.abs(curve.predict(x[:, None]) - x**2)) < 0.02

network = vemkn.Network(1, 1, hidden=[3])
value, gradient = network.value_and_grad(np.full(network.numel, 0.1), x[:, None], y[:, None])
assert np.isfinite(value) and np.isfinite(gradient).all()

# Alone they load what lies beside them. (Here NumPy has come first: what it has loaded is shared.)
folder = Path(vemkn.__file__).parent
assert "venv" in folder.parts, folder
assert str(folder / "libvemkn.so.1") in Path("/proc/self/maps").read_text()
for file in folder.glob("*.so.*"):
    found = subprocess.run(["ldd", file], capture_output=True, text=True, check=True).stdout
    for line in found.splitlines():
        if any(word in line for word in ("vemkn", "openblas", "gomp", "nlopt", "gfortran", "quadmath")):
            assert f"=> {folder}/" in line, f"{file.name}: {line}"
print("the wheel with its libraries passed")
