"""Values and exact derivatives of a small dense feed-forward network, for optimisers and fits.

`Network` is the network; `vemkn.optimize` hands it to SciPy's optimisers; `vemkn.fit` fits robustly, and `vemkn.sklearn` is an
estimator for scikit-learn; `vemkn.torch` makes the objective a term of a loss for PyTorch. They are imported by their names, as each needs its own packages.
"""

import importlib.metadata

from ._library import version as library_version
from .network import Network

try:
    __version__ = importlib.metadata.version("vemkn")
except importlib.metadata.PackageNotFoundError:  # used where it lies: it came with its library
    __version__ = library_version

__all__ = ["Network", "__version__", "library_version"]
