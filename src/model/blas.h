#pragma once

#include "model/matrix.h"

namespace VEMKN {

// One factor of a product: a stored rows x cols matrix, to be used as it stands or transposed.
struct Factor {
    const double* data;
    std::size_t rows;
    std::size_t cols;
    bool transposed = false;

    Factor(const RowsView& m) : data(m.data), rows(m.rows), cols(m.cols) {}

    Factor(const MatrixTemplate<double>& m) : Factor(RowsView(m)) {}

    // Shape as used.
    std::size_t used_rows() const { return transposed ? cols : rows; }

    std::size_t used_cols() const { return transposed ? rows : cols; }
};

inline Factor transposed(RowsView m)
{
    Factor f(m);
    f.transposed = true;
    return f;
}

inline Factor transposed(const MatrixTemplate<double>& m)
{
    return transposed(RowsView(m));
}

enum class Into { overwrite, add };

// C = A*B, or C += A*B: the one place that calls BLAS. A is m x k, B k x n as used, C m x n row by row.
// A zero inner dimension gives zeros. With overwrite the old contents of C do not matter, NaN included.
void product(const Factor& A, const Factor& B, double* C, Into into = Into::overwrite);

// C = A*B. C is resized.
inline void do_mult(RowsView A, const MatrixTemplate<double>& B, MatrixTemplate<double>& C)
{
    C.resize(A.rows, B.cols());
    product(A, B, C.data());
}

// C = A*B with one factor transposed. C is resized.
inline void do_binmult(MatrixTemplate<double>& C, const Factor& A, const Factor& B)
{
    C.resize(A.used_rows(), B.used_cols());
    product(A, B, C.data());
}

// C = A + b: element by element where b has as many entries as A has elements, else b on every row of A where
// b has as many entries as A has columns; else "invalid dims\n" on standard error and C keeps the values of A.
// Returns whether the sum was formed.
// C may be A.
bool do_binplus(MatrixTemplate<double>& C,
                const MatrixTemplate<double>& A,
                const std::valarray<double>& b);

}  // namespace VEMKN
