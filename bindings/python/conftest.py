"""What the tests leave out where a package is missing."""

import importlib.util

collect_ignore = [] if importlib.util.find_spec("torch") else ["vemkn/torch.py"]
