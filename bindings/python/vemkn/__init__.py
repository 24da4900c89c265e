"""Values and exact derivatives of a small dense feed-forward network, for optimisers and fits.

`Network` is the network; `vemkn.optimize` hands it to SciPy's optimisers, and `vemkn.sklearn` is an
estimator for scikit-learn. Both are imported by their names, as each needs its own packages.
"""

from ._library import version as library_version
from ._version import __version__
from .network import Network

__all__ = ["Network", "__version__", "library_version"]
