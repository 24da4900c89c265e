#pragma once

#include <cstddef>

#include "kernels/element_functions.h"
#include "model/blas.h"
#include "model/scalar.h"

// What the templates of the forward pass and the backward sweep ask of a matrix and of a model. They call it by unqualified
// names, found in the namespace of the type: for doubles in model/ and eval/element_loops.h, for bundles in fad/linear.h,
// fad/products.h and fad/element_loops.h, for adjoints side by side in model/block_row.h and eval/block_row_loops.h. What
// each does is described there.

namespace VEMKN {

// A matrix of a network: weights, and what the forward pass computes.
template <class M>
concept NetworkMatrix =
    requires(M& to, const M& m, Plain<M>& saved, const RowsView& rows, std::size_t n)
{
    // shapes and parts
    m.rows(), m.cols(), m.size();
    take_shape(m, to);
    set_zero(to, n, n);
    zeros_like(m);
    scalar_like(m);
    numbers_of_an_entry(m);
    asVector(m);
    shape_rows(to, m, n);
    put_rows(to, n, m);
    shape_columns(to, m, n);
    put_columns(to, n, m);
    transpose(m, to);
    // products and differences; rows of a batch are constants
    do_mult(m, m, to);
    do_mult(rows, m, to);
    subtract_rows(to, rows);
    do_add(to, m);
    // element functions
    apply<Id>(m, to, saved);
};

// The scalar that goes with it: an objective, a seed.
template <class S>
concept NetworkScalar = requires(S& s, const S& other, double factor)
{
    s += other;
    s *= factor;
    s /= factor;
    value_of(other) == 0.0;
};

// A model to compute with. Adjoints are matrices of the network, or several of them side by side.
template <class Net>
concept NetworkModel = NetworkMatrix<typename Net::Matrix> && NetworkScalar<typename Net::SValue> &&
    requires(typename Net::Matrix& Z,
             const typename Net::Matrix& H,
             const typename Net::Vector& b,
             typename Net::Vector& norms,
             typename Net::Saved& room,
             const RowsView& X,
             const typename Net::Adjoint& Zbar,
             typename Net::Adjoint& Hbar,
             typename Net::AdjointVector& gb,
             std::size_t n)
{
    do_binplus(Z, Z, b);
    shape_vector(H, norms);
    // the products of the sweep: H^T Zbar, formed or added, and Zbar W^T
    do_binmult(Hbar, transposed(H), Zbar);
    do_binmult(Hbar, transposed(X), Zbar);
    do_binmult_add(Hbar, transposed(H), Zbar, room);
    do_binmult_add(Hbar, transposed(X), Zbar, room);
    do_binmult(Hbar, Zbar, transposed(H));
    do_mult(Zbar, H, Hbar);
    colsum(Zbar, gb);
    add_colsum(Zbar, gb, n);
    do_add(gb, gb);
    // the adjoint of the passes' outputs, side by side
    take_columns(Zbar, n, n, Hbar);
    add_columns(Zbar, n, Hbar);
    adj_apply<Id>(H, room, Zbar, Hbar);
};

}  // namespace VEMKN
