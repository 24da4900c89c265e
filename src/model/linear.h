#pragma once

#include <algorithm>
#include <cstddef>

#include "kernels/kernels.h"
#include "model/matrix.h"

// What is linear in a matrix of doubles: sums, rows and columns, transposes.

namespace VEMKN {

inline StridedView view_of(const RowsView& m)
{
    return {m.data, m.rows, m.cols, m.cols};
}

// a += b, element by element; same shapes.
template <class Array>
void do_add(Array& a, const Array& b)
{
    kernels().add(elements(b), elements(a), a.size());
}

// Sum over the rows of every column, each summed from the last row up to the first.
//   A : rows x cols        out : overwritten, cols entries
template <class Store>
void colsum(const RowsView& A, Store& out)
{
    set_size(out, A.cols);
    if (A.rows == 0) {
        out = 0.0;
    } else {
        kernels().sum_columns(view_of(A), std::begin(out), false);
    }
}

// sums += column sums of so many rows of A each, formed first and then added, part by part from the first rows to the last.
inline void add_colsum(const StridedView& A, double* sums, std::size_t part)
{
    if (A.rows > 0) kernels().add_column_sums(A, std::min(part, A.rows), sums);
}

template <class Store>
void add_colsum(const RowsView& A, Store& sums, std::size_t part)
{
    add_colsum(view_of(A), std::begin(sums), part);
}

template <class T, class Store>
Store colsum(const MatrixTemplate<T, Store>& A)
{
    Store out;
    colsum(A, out);
    return out;
}

// whole gets the shape that holds `rows` rows like those of part.
template <class Store>
void shape_rows(DoubleMatrix<Store>& whole, const DoubleMatrix<Store>& part, std::size_t rows)
{
    whole.resize(rows, part.cols());
}

// Rows first ... first + part.rows() - 1 of whole take the values of part.
//   whole : any x cols        part : rows x cols
template <class Store>
void put_rows(DoubleMatrix<Store>& whole, std::size_t first, const DoubleMatrix<Store>& part)
{
    std::copy_n(part.data(), part.size(), whole.data() + first * whole.cols());
}

// The reverse of put_rows: part takes some rows of whole.
template <class Store>
void take_rows(const DoubleMatrix<Store>& whole, const RowRange& rows, DoubleMatrix<Store>& part)
{
    part.resize(rows.count, whole.cols());
    std::copy_n(whole.data() + rows.first * whole.cols(), part.size(), part.data());
}

// whole gets the shape that holds n parts side by side.
template <class Store>
void shape_columns(DoubleMatrix<Store>& whole, const DoubleMatrix<Store>& part, std::size_t n)
{
    whole.resize(part.rows(), n * part.cols());
}

// Columns first ... first + part.cols() - 1 of whole take the values of part.
//   whole : rows x any        part : rows x w
template <class Store>
void put_columns(DoubleMatrix<Store>& whole, std::size_t first, const DoubleMatrix<Store>& part)
{
    for (std::size_t r = 0; r < part.rows(); ++r) {
        std::copy_n(
            part.data() + r * part.cols(), part.cols(), whole.data() + r * whole.cols() + first);
    }
}

// The same columns of whole added to part.
template <class Store>
void add_columns(const DoubleMatrix<Store>& whole, std::size_t first, DoubleMatrix<Store>& part)
{
    for (std::size_t r = 0; r < part.rows(); ++r) {
        const double* const from = whole.data() + r * whole.cols() + first;
        kernels().add(from, part.data() + r * part.cols(), part.cols());
    }
}

// The reverse of put_columns: part takes width columns of whole.
template <class Store>
void take_columns(const DoubleMatrix<Store>& whole,
                  std::size_t first,
                  std::size_t width,
                  DoubleMatrix<Store>& part)
{
    part.resize(whole.rows(), width);
    for (std::size_t r = 0; r < part.rows(); ++r) {
        std::copy_n(whole.data() + r * whole.cols() + first, width, part.data() + r * width);
    }
}

// R -= Y for a batch of constants Y of the same shape.
template <class Store>
void subtract_rows(DoubleMatrix<Store>& R, const RowsView& Y)
{
    kernels().subtract(Y.data, R.data(), R.size());
}

// At = transpose of A, square by square so that both are walked in cache lines.
template <class Store>
void transpose(const RowsView& A, DoubleMatrix<Store>& At)
{
    constexpr std::size_t SIDE = 8;
    const std::size_t rows = A.rows, cols = A.cols;
    At.resize(cols, rows);
    for (std::size_t r0 = 0; r0 < rows; r0 += SIDE) {
        for (std::size_t c0 = 0; c0 < cols; c0 += SIDE) {
            for (std::size_t c = c0; c < std::min(c0 + SIDE, cols); ++c) {
                for (std::size_t r = r0; r < std::min(r0 + SIDE, rows); ++r)
                    At(c, r) = A.data[r * cols + c];
            }
        }
    }
}

}  // namespace VEMKN
