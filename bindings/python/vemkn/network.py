"""One network of the library, with NumPy arrays in and out."""

from __future__ import annotations

import functools
from collections.abc import Callable, Sequence
from dataclasses import replace
from operator import index
from typing import Any, TypeVar, cast

import numpy as np
from numpy.typing import ArrayLike

from ._arrays import (
    Array,
    check_count,
    contiguous,
    tangents,
    matrix,
    numbers,
    vector,
    cotangents,
)
from ._base import NetworkBase
from ._library import tangent_order
from ._shape import Shape, layer_widths


_Initialiser = TypeVar("_Initialiser", bound=Callable[..., None])


def _layers_by_name(initialise: _Initialiser) -> _Initialiser:
    """What becomes of the sizes that stood in the third place once."""

    @functools.wraps(initialise)
    def checked(self: object, *positional: Any, **named: Any) -> None:
        if len(positional) > 2:
            _, _, sizes, *_ = positional
            layers = f"hidden={list(sizes[1:])}" if isinstance(sizes, (list, tuple)) else "hidden"
            raise TypeError(
                f"Network takes numin and numout, and all else by name: {layers} in place of "
                f"sizes as {sizes!r}"
            )
        initialise(self, *positional, **named)

    return cast(_Initialiser, checked)


class Network(NetworkBase):
    """A dense feed-forward network: values and exact derivatives for optimisers.

    Parameters
    ----------
    numin, numout : int
        Number of input and output columns.
    hidden : sequence of int, or int
        Units of each hidden layer, at least one layer; by name only. `sizes` of the network, in the
        words of the library, are `numin` and these.
    nmult : int
        Above 1, the hidden layers are applied that often in a chain, and the last layer gets the
        outputs of all passes side by side. The last hidden layer must then be as wide as the input.
    activation : {"softplus", "atan", "relu", "id"}
        Acts on every layer, the last one included. Other names are refused.
    norm : {"sum_log_dnorm_fat", "sum"}
        The robust likelihood, or the residuals themselves.
    threads, batch : int
        Number of threads at most, and rows of a slice. The same data with the same `batch` give
        the same bits, run after run.
    quiet : bool
        In quiet mode, infinities and NaN flow through to the results. If false, an operation that
        makes one ends the process with SIGFPE.

    Raises
    ------
    ValueError
        For counts and names that describe no network.
    TypeError
        For counts that are not whole numbers, and layers that are not given by name.

    Notes
    -----
    Array arguments are anything array-like without masked values. They are copied only if they are
    not contiguous arrays of float64 already. Results are new arrays.

    Weights are flat vectors: layer by layer the biases, then the weight matrix by rows, with one
    row for each input of the layer; see `split`. A method that is given None for the weights uses
    the network's own, `weights`.

    Inputs may have fewer columns than the network takes; missing ones count as zeros. Where the
    network has one input (or output), a vector of inputs (or targets) counts as one column.

    A wrong shape raises ValueError, and what is not numbers TypeError, before any call.

    Methods let go of the interpreter's lock, and may run in several threads at once, on one network
    too. Setting `weights`, `threads`, `batch` or `quiet` must not overlap with a call on the same
    network. `close` may come at any time.

    Examples
    --------
    >>> network = Network(2, 1, hidden=[3], activation="atan")
    >>> network.numel
    13
    >>> network.compute(np.zeros(13), [[1.0, 2.0], [3.0, 4.0]])
    array([[0.],
           [0.]])
    """

    @_layers_by_name
    def __init__(
        self,
        numin: int,
        numout: int,
        *,
        hidden: Sequence[int] | int,
        nmult: int = 1,
        activation: str = "softplus",
        norm: str = "sum_log_dnorm_fat",
        threads: int = 1,
        batch: int = 32,
        quiet: bool = True,
    ) -> None:
        sizes = index(numin), *layer_widths(hidden)
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

    def with_norm(self, norm: str) -> Network:
        """A new network like this one, own weights included, with another norm."""
        other = Network.__new__(Network)
        other._open(replace(self._shape, norm=norm), self._threads, self._batch, self._quiet)
        other.weights = self.weights
        return other

    # ------------------------------------------------------------------- outputs and the objective

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
        """The norm of every residual, whose mean is the objective.

        Under "sum" it is the residual itself, else its negative log-likelihood. Arguments and shapes
        are as in `residual`.
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
        """The norm of any residuals, in their shape; no network is run."""
        array = numbers("residuals", residuals)
        check_count("residuals", array.shape)
        flat = contiguous(array)
        out = np.empty(array.shape)
        self._call("vemk_logp", flat, flat.size, out)
        return out

    # --------------------------------------------------------------------------------- derivatives

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
        """Products of the Hessian of the objective with one or several tangents.

        The arguments stand in the order that `scipy.optimize.minimize` has for `hessp`.

        Parameters
        ----------
        w, x, y
            As in `residual`; at least one row.
        v : array_like, shape (numel,) or (numel, k)
            A tangent, or k of them as columns.

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
        along = tangents("v", v, self.numel)
        value, gradient, products = np.empty(()), np.empty(self.numel), np.empty(along.shape)
        with tangent_order.interleaved():
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
        """The norm of every residual and its derivatives along one or several tangents.

        Parameters
        ----------
        w, x, y
            As in `residual`.
        v : array_like, shape (numel,) or (numel, k)
            A tangent in the space of weights, or k of them as columns.

        Returns
        -------
        values : ndarray, shape (rows, numout)
            As from `objective_each`.
        products : ndarray, shape (rows, numout) or (rows, numout, k)
        """
        weights, data = self._weights(w), self._data(x, y)
        along = tangents("v", v, self.numel)
        values = self._results(len(data[0]))
        products = np.empty((*values.shape, along.shape[1]))
        with tangent_order.interleaved():
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
            The cotangent.

        Returns
        -------
        residuals : ndarray, shape (rows, numout)
            Outputs minus targets, under every norm.
        gradient : ndarray, shape (numel,)
            ``tensordot(u, jacobian(w, x, y), 2)``
        """
        weights, data = self._weights(w), self._data(x, y)
        cotangent = matrix("u", u, self.numout)
        _check_rows("u", cotangent, len(data[0]))
        residuals, gradient = self._results(len(data[0])), np.empty(self.numel)
        self._call(
            "vemk_vJ",
            *(weights, self.numel, cotangent, 0),
            *(*data, *_counts(data)),
            *(residuals, gradient),
        )
        return residuals, gradient

    def vjp_many(
        self, w: ArrayLike | None, u: ArrayLike, x: ArrayLike, y: ArrayLike
    ) -> tuple[Array, Array]:
        """What `vjp` gives, for several cotangents, from one forward pass.

        Parameters
        ----------
        w, x, y
            As in `residual`.
        u : array_like, shape (k, rows, numout)
            The cotangents.

        Returns
        -------
        residuals : ndarray, shape (rows, numout)
        gradients : ndarray, shape (k, numel)
        """
        weights, data = self._weights(w), self._data(x, y)
        cotangent = cotangents("u", u, (len(data[0]), self.numout))
        residuals, gradients = self._results(len(data[0])), np.empty((len(cotangent), self.numel))
        self._call(
            "vemk_vJ_vec",
            *(weights, self.numel, cotangent, len(cotangent)),
            *(*data, *_counts(data)),
            *(residuals, gradients),
        )
        return residuals, gradients

    # ----------------------------------------------------------------------- arguments and results

    def _weights(self, w: ArrayLike | None) -> Array | None:
        return None if w is None else vector("w", w, self.numel)

    def _inputs(self, x: ArrayLike) -> Array:
        # Deliberate: one column too many would end the process.
        return matrix("x", x, self.maxcols, fewer=True)

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
