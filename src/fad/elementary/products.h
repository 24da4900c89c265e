#pragma once

#include "fad/elementary/fad1.h"

// Products of carriers of separate derivatives, by way of bundles: d(A*B) = dA*B + A*dB for every tangent.

namespace yafad {

template <class T>
struct TransposedFAD1 {
    const fad1<T>& carrier;
};

inline TransposedFAD1<MatrixTemplate<double>> transposed(const MatrixCarrier& A)
{
    return {A};
}

void do_mult(const MatrixCarrier& A, const MatrixCarrier& B, MatrixCarrier& C);

void do_binmult(MatrixCarrier& C,
                const MatrixCarrier& A,
                const TransposedFAD1<MatrixTemplate<double>>& B);

void do_binmult(MatrixCarrier& C,
                const TransposedFAD1<MatrixTemplate<double>>& A,
                const MatrixCarrier& B);

void do_binplus(MatrixCarrier& C, const MatrixCarrier& A, const VectorCarrier& b);

}  // namespace yafad
