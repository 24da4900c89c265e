"""One network of the library, with NumPy arrays in and out."""

from __future__ import annotations

import weakref
from collections.abc import Sequence
from operator import index
from types import TracebackType
from typing import Any

import numpy as np
from numpy.typing import ArrayLike

from ._arrays import (
    Array,
    check_count,
    contiguous,
    directions,
    matrix,
    numbers,
    vector,
    weightings,
)
from ._library import direction_order, library
from ._shape import Shape

class _Handle:
    """Owns a handle of the library, which is released with the last reference to this object.

    Every call holds a reference while it runs, so closing a network under a call of another thread
    is safe.
    """

    def __init__(self, text: str) -> None:
        encoded = text.encode("ascii")
        self.pointer: int = library.initVEMKNet(encoded, len(encoded))
        finalizer = weakref.finalize(self, library.releaseVEMKNet, self.pointer)
        # At exit a daemon thread may still compute, and the memory goes with the process.
        finalizer.atexit = False


class Network:
    """A dense feed-forward network: values and exact derivatives for optimisers.

    Parameters
    ----------
    numin, numout : int
        Number of input and output columns.
    sizes : sequence of int
        Sizes of the layers' *inputs*, at least two: ``[2, 5]`` takes 2 inputs through 5 hidden
        units to the outputs.
    nmult : int
        Above 1, the hidden layers are applied that often in a chain, and the last layer gets the
        outputs of all passes side by side. The last size must then equal the first.
    activation : {"softplus", "atan", "relu", "id"}
        Acts on every layer, the last one included. Other names are refused.
    norm : {"sum_log_dnorm_fat", "sum"}
        The robust likelihood, or the residuals themselves.
    threads, batch : int
        Number of shares that the rows are dealt to, and rows of a slice. The same data with the
        same two numbers give the same bits, run after run.
    quiet : bool
        In quiet mode, infinities and NaN flow through to the results. If false, an operation that
        makes one ends the process with SIGFPE.

    Raises
    ------
    ValueError
        For counts and names that describe no network.

    Notes
    -----
    Array arguments are anything array-like. They are copied only if they are not contiguous arrays
    of float64 already. Results are new arrays.

    Weights are flat vectors: layer by layer the biases, then the weight matrix by rows, with one
    row for each input of the layer; see `split`. A method that is given None for the weights uses
    the network's own, `weights`.

    Inputs may have fewer columns than the network takes; missing ones count as zeros. Where the
    network has one input (or output), a vector of inputs (or targets) counts as one column.

    A wrong shape raises ValueError, and what is not numbers TypeError, before the library is called.

    Methods let go of the interpreter's lock, and may run in several threads at once, on one network
    too. Setting `weights`, `threads`, `batch` or `quiet` must not overlap with a call on the same
    network. `close` may come at any time.

    Examples
    --------
    >>> network = Network(2, 1, [2, 3], activation="atan")
    >>> network.numel
    13
    >>> network.compute(np.zeros(13), [[1.0, 2.0], [3.0, 4.0]])
    array([[0.],
           [0.]])
    """

    def __init__(
        self,
        numin: int,
        numout: int,
        sizes: Sequence[int],
        *,
        nmult: int = 1,
        activation: str = "softplus",
        norm: str = "sum_log_dnorm_fat",
        threads: int = 1,
        batch: int = 32,
        quiet: bool = True,
    ) -> None:
        sizes = tuple(index(size) for size in sizes)
        shape = Shape(index(numin), index(numout), sizes, index(nmult), activation, norm)
        self._open(shape, threads, batch, quiet)

    @classmethod
    def from_description(
        cls, text: str, *, threads: int = 1, batch: int = 32, quiet: bool = True
    ) -> Network:
        """A network from the library's description text.

        Parameters
        ----------
        text : str
            ``numin numout nlayers nmult batch``, then nlayers sizes, activation and norm, as in
            ``"2 1 2 1 32 2 5 softplus sum_log_dnorm_fat"``. Its batch is not used, as everywhere.
        threads, batch, quiet
            As in the constructor.
        """
        network = cls.__new__(cls)
        network._open(Shape.parse(text), threads, batch, quiet)
        return network

    def _open(self, shape: Shape, threads: int, batch: int, quiet: bool) -> None:
        check_count("weights", [shape.numel])
        self._shape = shape
        self._handle: _Handle | None = _Handle(shape.text)
        if library.vemk_numel(self._handle.pointer) != shape.numel:
            raise ValueError(f"the library makes no network of {shape.text!r}")
        self._set_parallel(threads, batch)
        self.quiet = quiet

    # ---------------------------------------------------------------------------- life and settings

    def close(self) -> None:
        """Lets go of the handle; calls after this one raise ValueError. Closing twice is no error."""
        self._handle = None

    @property
    def closed(self) -> bool:
        """Whether `close` has been called."""
        return self._handle is None

    def __enter__(self) -> Network:
        self._live()
        return self

    def __exit__(
        self,
        kind: type[BaseException] | None,
        error: BaseException | None,
        trace: TracebackType | None,
    ) -> None:
        self.close()

    def __repr__(self) -> str:
        settings = f"threads={self._threads}, batch={self._batch}, quiet={self._quiet}"
        return f"Network.from_description({self.description!r}, {settings})"

    def __getstate__(self) -> dict[str, Any]:
        """The shape, the settings and the network's own weights."""
        return {
            "shape": self._shape,
            "settings": (self._threads, self._batch, self._quiet),
            "weights": self.weights,
        }

    def __setstate__(self, state: dict[str, Any]) -> None:
        self._open(state["shape"], *state["settings"])
        self.weights = state["weights"]

    def with_norm(self, norm: str) -> Network:
        """A new network like this one, own weights included, with another norm."""
        shape = self._shape
        other = Network(
            shape.numin,
            shape.numout,
            shape.sizes,
            nmult=shape.nmult,
            activation=shape.activation,
            norm=norm,
            threads=self._threads,
            batch=self._batch,
            quiet=self._quiet,
        )
        other.weights = self.weights
        return other

    @property
    def description(self) -> str:
        """The text that the library makes this network from."""
        return self._shape.text

    @property
    def numin(self) -> int:
        """Number of input columns."""
        return self._shape.numin

    @property
    def numout(self) -> int:
        """Number of output columns."""
        return self._shape.numout

    @property
    def sizes(self) -> tuple[int, ...]:
        """Sizes of the layers' inputs."""
        return self._shape.sizes

    @property
    def nmult(self) -> int:
        """How often the hidden layers are applied."""
        return self._shape.nmult

    @property
    def activation(self) -> str:
        """Name of the activation."""
        return self._shape.activation

    @property
    def norm(self) -> str:
        """Name of the norm."""
        return self._shape.norm

    @property
    def numel(self) -> int:
        """Number of weights and biases."""
        return self._shape.numel

    @property
    def sigma(self) -> float:
        """Standard deviation of the likelihood's core, 1/3."""
        return float(library.vemk_logp_sigma(self._live().pointer))

    @property
    def threads(self) -> int:
        """Number of shares that the rows are dealt to, 1 to 99999; 64 of them at most are used."""
        return self._threads

    @threads.setter
    def threads(self, threads: int) -> None:
        self._set_parallel(threads, self._batch)

    @property
    def batch(self) -> int:
        """Rows of a slice."""
        return self._batch

    @batch.setter
    def batch(self, batch: int) -> None:
        self._set_parallel(self._threads, batch)

    def _set_parallel(self, threads: int, batch: int) -> None:
        threads, batch = index(threads), index(batch)
        if not 1 <= threads <= 99999:
            raise ValueError(f"threads: {threads} is not within 1 ... 99999")
        if not 1 <= batch < 2**31:
            raise ValueError(f"batch: {batch} is not a positive count of 31 bits")
        self._call("vemk_setpar", threads, batch)
        self._threads, self._batch = threads, batch

    @property
    def quiet(self) -> bool:
        """Whether results that are not finite come back instead of ending the process."""
        return self._quiet

    @quiet.setter
    def quiet(self, quiet: bool) -> None:
        self._call("vemk_quiet", int(quiet))
        self._quiet = bool(quiet)

    # ---------------------------------------------------------------------------------------- weights

    @property
    def weights(self) -> Array:
        """The network's own weights, shape (numel,), zeros at first. Getting and setting copies."""
        own = np.empty(self.numel)
        self._call("vemk_getweights", own, self.numel)
        return own

    @weights.setter
    def weights(self, w: ArrayLike) -> None:
        self._call("vemk_setweights", vector("weights", w, self.numel), self.numel)

    def split(self, w: ArrayLike) -> list[tuple[Array, Array]]:
        """Biases and weight matrix of every layer, as views into a flat vector.

        Parameters
        ----------
        w : array_like, shape (numel,)
            Weights, a gradient or a product.

        Returns
        -------
        list of (b, W)
            b has the shape (outputs,), W (inputs, outputs), so that a layer is ``H @ W + b``. They
            share the memory of `w` if it is an array of float64.
        """
        flat = numbers("w", w)
        if flat.shape != (self.numel,):
            raise ValueError(f"w has the shape {flat.shape}, needs ({self.numel},)")
        flat = np.asarray(flat, dtype=np.float64)
        layers = []
        at = 0
        for rows, columns in self._shape.layers():
            end = at + columns + rows * columns
            layers.append((flat[at : at + columns], flat[at + columns : end].reshape(rows, columns)))
            at = end
        return layers

    # ---------------------------------------------------------------------- outputs and the objective

    def compute(self, w: ArrayLike | None, x: ArrayLike) -> Array:
        """Outputs of the network.

        Parameters
        ----------
        w : array_like, shape (numel,), or None
            Weights; None stands for the network's own.
        x : array_like, shape (rows, numin)
            Inputs.

        Returns
        -------
        ndarray, shape (rows, numout)
        """
        weights, inputs = self._weights(w), self._inputs(x)
        rows, columns = inputs.shape
        out = self._results(rows)
        self._call("vemk_compute", weights, self.numel, inputs, rows, columns, 0, out)
        return out

    def residual(self, w: ArrayLike | None, x: ArrayLike, y: ArrayLike) -> Array:
        """Outputs minus targets.

        Parameters
        ----------
        w : array_like, shape (numel,), or None
            Weights; None stands for the network's own.
        x : array_like, shape (rows, numin)
            Inputs.
        y : array_like, shape (rows, numout)
            Targets.

        Returns
        -------
        ndarray, shape (rows, numout)
        """
        return self._of_every_residual("vemk_residual", w, x, y)

    def objective_each(self, w: ArrayLike | None, x: ArrayLike, y: ArrayLike) -> Array:
        """The norm of every residual: under "sum" the residual itself, under "sum_log_dnorm_fat" its
        negative log-likelihood. Their mean is the objective. Arguments and shapes as in `residual`.
        """
        return self._of_every_residual("vemk_objv", w, x, y)

    def _of_every_residual(
        self, function: str, w: ArrayLike | None, x: ArrayLike, y: ArrayLike
    ) -> Array:
        weights, data = self._weights(w), self._data(x, y)
        out = self._results(len(data[0]))
        self._call(function, weights, self.numel, *data, *_counts(data), out)
        return out

    def objective(self, w: ArrayLike | None, x: ArrayLike, y: ArrayLike) -> float:
        """The mean norm of the residuals.

        Parameters
        ----------
        w, x, y
            As in `residual`; at least one row.

        Returns
        -------
        float
            Infinite or NaN where the arithmetic overflows or the data hold such numbers.
        """
        weights, data = self._weights(w), self._data(x, y, empty=False)
        value = np.empty(())
        self._call("vemk_obj", weights, self.numel, *data, *_counts(data), value)
        return float(value)

    def element_norm(self, residuals: ArrayLike) -> Array:
        """The norm of each of any residuals; no network is run. Result in the shape of `residuals`."""
        array = numbers("residuals", residuals)
        check_count("residuals", array.shape)
        flat = contiguous(array)
        out = np.empty(array.shape)
        self._call("vemk_logp", flat, flat.size, out)
        return out

    # ------------------------------------------------------------------------------------- derivatives

    def value_and_grad(
        self, w: ArrayLike | None, x: ArrayLike, y: ArrayLike
    ) -> tuple[float, Array]:
        """The objective and its gradient.

        Parameters
        ----------
        w, x, y
            As in `residual`; at least one row.

        Returns
        -------
        value : float
        gradient : ndarray, shape (numel,)
        """
        weights, data = self._weights(w), self._data(x, y, empty=False)
        value, gradient = np.empty(()), np.empty(self.numel)
        self._call("vemk_g", weights, self.numel, *data, *_counts(data), value, gradient)
        return float(value), gradient

    def hvp(self, w: ArrayLike | None, v: ArrayLike, x: ArrayLike, y: ArrayLike) -> Array:
        """Products of the Hessian of the objective with one or several directions.

        The arguments stand in the order that `scipy.optimize.minimize` has for `hessp`.

        Parameters
        ----------
        w, x, y
            As in `residual`; at least one row.
        v : array_like, shape (numel,) or (numel, k)
            A direction, or k of them as columns.

        Returns
        -------
        ndarray, in the shape of `v`
        """
        return self.value_grad_hvp(w, v, x, y)[2]

    def value_grad_hvp(
        self, w: ArrayLike | None, v: ArrayLike, x: ArrayLike, y: ArrayLike
    ) -> tuple[float, Array, Array]:
        """The objective, its gradient and the products that `hvp` gives, from one call."""
        weights, data = self._weights(w), self._data(x, y, empty=False)
        along = directions("v", v, self.numel)
        value, gradient, products = np.empty(()), np.empty(self.numel), np.empty(along.shape)
        with direction_order.interleaved():
            self._call(
                "vemk_Hv",
                *(weights, self.numel, along, along.shape[1]),
                *(*data, *_counts(data)),
                *(value, gradient, products),
            )
        return float(value), gradient, products.reshape(np.shape(v))

    def jvp(
        self, w: ArrayLike | None, v: ArrayLike, x: ArrayLike, y: ArrayLike
    ) -> tuple[Array, Array]:
        """The norm of every residual and its derivatives along one or several directions.

        Parameters
        ----------
        w, x, y
            As in `residual`.
        v : array_like, shape (numel,) or (numel, k)
            A direction in the space of weights, or k of them as columns.

        Returns
        -------
        values : ndarray, shape (rows, numout)
            As from `objective_each`.
        products : ndarray, shape (rows, numout) or (rows, numout, k)
        """
        weights, data = self._weights(w), self._data(x, y)
        along = directions("v", v, self.numel)
        values = self._results(len(data[0]))
        products = np.empty((*values.shape, along.shape[1]))
        with direction_order.interleaved():
            self._call(
                "vemk_Jv",
                *(weights, self.numel, along, along.shape[1]),
                *(*data, *_counts(data)),
                *(values, products),
            )
        return values, products[:, :, 0] if np.ndim(v) == 1 else products

    def jacobian(self, w: ArrayLike | None, x: ArrayLike, y: ArrayLike) -> Array:
        """Derivatives of the norm of every residual with respect to every weight.

        Parameters
        ----------
        w, x, y
            As in `residual`.

        Returns
        -------
        ndarray, shape (rows, numout, numel)
            Under the norm "sum" this is the Jacobian of the outputs.
        """
        return self.jvp(w, np.eye(self.numel), x, y)[1]

    def vjp(
        self, w: ArrayLike | None, u: ArrayLike, x: ArrayLike, y: ArrayLike
    ) -> tuple[Array, Array]:
        """The residuals, and the gradient of a weighted sum of their norms.

        Parameters
        ----------
        w, x, y
            As in `residual`.
        u : array_like, shape (rows, numout)
            The weighting.

        Returns
        -------
        residuals : ndarray, shape (rows, numout)
            Outputs minus targets, under every norm.
        gradient : ndarray, shape (numel,)
            ``tensordot(u, jacobian(w, x, y), 2)``
        """
        weights, data = self._weights(w), self._data(x, y)
        weighting = matrix("u", u, self.numout)
        _check_rows("u", weighting, len(data[0]))
        residuals, gradient = self._results(len(data[0])), np.empty(self.numel)
        self._call(
            "vemk_vJ",
            *(weights, self.numel, weighting, 0),
            *(*data, *_counts(data)),
            *(residuals, gradient),
        )
        return residuals, gradient

    def vjp_many(
        self, w: ArrayLike | None, u: ArrayLike, x: ArrayLike, y: ArrayLike
    ) -> tuple[Array, Array]:
        """What `vjp` gives, for several weightings, from one forward pass.

        Parameters
        ----------
        w, x, y
            As in `residual`.
        u : array_like, shape (k, rows, numout)
            The weightings.

        Returns
        -------
        residuals : ndarray, shape (rows, numout)
        gradients : ndarray, shape (k, numel)
        """
        weights, data = self._weights(w), self._data(x, y)
        weighting = weightings("u", u, (len(data[0]), self.numout))
        residuals, gradients = self._results(len(data[0])), np.empty((len(weighting), self.numel))
        self._call(
            "vemk_vJ_vec",
            *(weights, self.numel, weighting, len(weighting)),
            *(*data, *_counts(data)),
            *(residuals, gradients),
        )
        return residuals, gradients

    # ------------------------------------------------------------------------------ what calls consist of

    def _live(self) -> _Handle:
        if self._handle is None:
            raise ValueError("the network is closed")
        return self._handle

    def _call(self, name: str, *arguments: Array | int | None) -> None:
        """Calls the library. Both the handle and the arrays live at least until it returns."""
        handle = self._live()
        raw = [each.ctypes.data if isinstance(each, np.ndarray) else each for each in arguments]
        _check_status(name, getattr(library, name)(handle.pointer, *raw))

    def _weights(self, w: ArrayLike | None) -> Array | None:
        return None if w is None else vector("w", w, self.numel)

    def _inputs(self, x: ArrayLike) -> Array:
        # Deliberate: one column too many would end the process.
        return matrix("x", x, self._shape.widest_input, fewer=True)

    def _data(self, x: ArrayLike, y: ArrayLike, *, empty: bool = True) -> tuple[Array, Array]:
        inputs = self._inputs(x)
        targets = matrix("y", y, self.numout)
        _check_rows("y", targets, len(inputs))
        if len(inputs) == 0 and not empty:
            raise ValueError("the mean over no rows is not defined")
        return inputs, targets

    def _results(self, rows: int) -> Array:
        check_count("residuals", [rows, self.numout])
        return np.empty((rows, self.numout))


def _counts(data: tuple[Array, Array]) -> tuple[int, int, int]:
    """Rows, input columns, target columns: so they follow x and y in every call."""
    x, y = data
    return x.shape[0], x.shape[1], y.shape[1]


def _check_rows(name: str, array: Array, rows: int) -> None:
    if len(array) != rows:
        raise ValueError(f"{name} has {len(array)} rows, x has {rows}")


def _check_status(name: str, status: int) -> None:
    """1 is no refusal: it says that not all results are finite, which whoever reads them will see."""
    if status < 0:
        raise ValueError(f"{name}: the library refused the call, see standard error")
