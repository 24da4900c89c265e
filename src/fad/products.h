#pragma once

#include "fad/bundle.h"

// Products of bundles. The value is the double product; the derivative along tangent k is
//
//     d(A*B) = dA*B + A*dB.
//
// The second term is one product for all tangents, and so is the first where no gaps lie between rows; of a
// transposed A it is one for each, unless all are small. A factor that is a constant (rows of a batch) has no derivatives,
// and the product with them is not formed.

namespace yafad {

using VEMKN::By;
using VEMKN::Into;
using VEMKN::product;
using VEMKN::RowRange;
using VEMKN::transposed;

// Asks a product to use a bundle transposed.
struct TransposedBundle {
    BundleView bundle;
};

inline TransposedBundle transposed(const BundleView& A)
{
    return {A};
}

// At = transpose of A, the value and every derivative.
void transpose(const BundleView& A, Bundle& At);

// C = A*B
void do_mult(const Bundle& A, const Bundle& B, Bundle& C, By by = By::kernels);

// C = A*B for constants A. Deliberate: the derivatives of a constant are the constant times 0.0, so an infinite or NaN
// entry of A gives NaN derivatives.
void do_mult(const RowsView& A, const Bundle& B, Bundle& C, By by = By::kernels);

// C = A*B^T
void do_binmult(Bundle& C, const Bundle& A, const TransposedBundle& B, By by = By::kernels);

// C = A^T*B
void do_binmult(Bundle& C, const TransposedBundle& A, const BundleView& B, By by = By::kernels);

// C = A*B for a constant factor A, transposed or not; non-finite entries as in do_mult.
void do_binmult(Bundle& C, const Factor& A, const BundleView& B, By by = By::kernels);

// C += A^T*B or A*B in a range of the rows of C, value and derivatives each formed first and then added; room, part and range as
// for doubles.
void do_binmult_add(Bundle& C,
                    const TransposedBundle& A,
                    const BundleView& B,
                    WorkMatrix& room,
                    By by,
                    std::size_t part,
                    const RowRange& range);
void do_binmult_add(Bundle& C,
                    const Factor& A,
                    const BundleView& B,
                    WorkMatrix& room,
                    By by,
                    std::size_t part,
                    const RowRange& range);

template <class Left>
void do_binmult_add(Bundle& C,
                    const Left& A,
                    const BundleView& B,
                    WorkMatrix& room,
                    By by = By::kernels,
                    std::size_t part = VEMKN::WHOLE)
{
    do_binmult_add(C, A, B, room, by, part, {0, C.rows()});
}

// C = A + b by the rule of the double twin, on the value and on every derivative. C may be A.
void do_binplus(Bundle& C, const Bundle& A, const Bundle& b);

}  // namespace yafad
