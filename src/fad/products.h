#pragma once

#include "fad/fad1.h"
#include "model/blas.h"

// Products of carriers. The value is the double product; the derivative along direction k is
//
//     d(A*B) = dA*B + A*dB.
//
// A factor that is a constant (rows of a batch) has no tangents, and the product with them is not formed.

namespace yafad {

// Asks a product to use a carrier transposed.
template <class T>
struct TransposedFAD1 {
    const fad1<T>& carrier;
};

inline TransposedFAD1<MatrixTemplate<double>> transposed(const MatrixCarrier& A)
{
    return {A};
}

// C = A*B.
void do_mult(const MatrixCarrier& A, const MatrixCarrier& B, MatrixCarrier& C);

// C = A*B for constants A. Deliberate: the derivatives of a constant are the constant times 0.0, so an infinite or NaN
// entry of A gives NaN derivatives.
void do_mult(const RowsView& A, const MatrixCarrier& B, MatrixCarrier& C);

// C = A*B^T
void do_binmult(MatrixCarrier& C,
                const MatrixCarrier& A,
                const TransposedFAD1<MatrixTemplate<double>>& B);

// C = A^T*B
void do_binmult(MatrixCarrier& C,
                const TransposedFAD1<MatrixTemplate<double>>& A,
                const MatrixCarrier& B);

// C = A*B for a constant factor A, transposed or not; non-finite entries as in do_mult.
void do_binmult(MatrixCarrier& C, const VEMKN::Factor& A, const MatrixCarrier& B);

// C += A*B, value and derivatives each formed first and then added; room as for doubles.
void do_binmult_add(MatrixCarrier& C,
                    const TransposedFAD1<MatrixTemplate<double>>& A,
                    const MatrixCarrier& B,
                    MatrixTemplate<double>& room);
void do_binmult_add(MatrixCarrier& C,
                    const VEMKN::Factor& A,
                    const MatrixCarrier& B,
                    MatrixTemplate<double>& room);

// C = A + b by the rule of the double twin, on the value and on every derivative. C may be A.
void do_binplus(MatrixCarrier& C, const MatrixCarrier& A, const VectorCarrier& b);

}  // namespace yafad
