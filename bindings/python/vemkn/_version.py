"""Version of the package, which is that of the library it comes with."""

__version__ = "2026.9.1175"
