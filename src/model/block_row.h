#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <new>

#include "model/blas.h"

namespace VEMKN {

// Some rows of matrices side by side that somebody else owns: see BlockRow.
class BlockRowView {
public:
    BlockRowView(
        const double* data, std::size_t rows, std::size_t cols, std::size_t n, std::size_t pitch)
        : data_(data), rows_(rows), cols_(cols), n_(n), pitch_(pitch)
    {
    }

    std::size_t rows() const { return rows_; }

    std::size_t cols() const { return cols_; }

    std::size_t count() const { return n_; }

    // Where row r of matrix k begins.
    const double* at(std::size_t k, std::size_t r = 0) const
    {
        return data_ + r * pitch_ + k * cols_;
    }

    // Some rows of each.
    BlockRowView cut_rows(const RowRange& rows) const
    {
        return {at(0, rows.first), rows.count, cols_, n_, pitch_};
    }

    // One matrix as a factor, and all of them side by side.
    StridedView factor(std::size_t k) const { return {at(k), rows_, cols_, pitch_}; }

    StridedView side_by_side() const { return {data_, rows_, n_ * cols_, pitch_}; }

private:
    const double* data_;
    std::size_t rows_, cols_, n_, pitch_;
};

// Matrices of one shape side by side in one array, so that one product or one loop serves all of them: the derivatives of
// a carrier, or the adjoints of several cotangents. Three matrices of 2 x 4:
//
//                matrix 0      matrix 1      matrix 2
//             +-------------+-------------+-------------+-----+
//     row 0   | 0  1  2  3  | 0  1  2  3  | 0  1  2  3  | gap |   entry (r, c) of matrix k is
//     row 1   | 0  1  2  3  | 0  1  2  3  | 0  1  2  3  | gap |   at r*pitch + k*cols + c
//             +-------------+-------------+-------------+-----+
//              <-- cols --->
//              <----------------- width --------------->
//              <-------------------- pitch ------------------>
//
// Mostly there is no gap. Vectors are matrices of one row. Owns its storage; copied by value.
class BlockRow {
public:
    BlockRow() = default;

    // n matrices rows x cols, all without contents.
    void set_shape(std::uint64_t rows, std::uint64_t cols, std::size_t n)
    {
        std::size_t pitch = n * cols;
        // Rows a multiple of 2 KB apart compete for the same lines of the cache.
        if (n > 1 && rows > 1 && cols >= LINE && pitch % CACHE_WAY == 0) pitch += LINE;
        // Without contents, should there be no memory for them.
        rows_ = cols_ = n_ = pitch_ = 0;
        if (pitch != 0 && rows > PTRDIFF_MAX / sizeof(double) / pitch) throw std::bad_alloc();
        store_.set_size(rows * pitch);
        rows_ = rows;
        cols_ = cols;
        n_ = n;
        pitch_ = pitch;
    }

    // Of each matrix.
    std::size_t rows() const { return rows_; }

    std::size_t cols() const { return cols_; }

    std::size_t size() const { return rows_ * cols_; }

    // Number of matrices.
    std::size_t count() const { return n_; }

    // Length of a row that holds a row of each.
    std::size_t width() const { return n_ * cols_; }

    std::size_t pitch() const { return pitch_; }

    // Whether no row is followed by a gap: the matrices are then one of rows*n rows, too.
    bool is_dense() const { return pitch_ == width(); }

    double* data() { return store_.begin(); }

    const double* data() const { return store_.begin(); }

    // Where row r of matrix k begins.
    double* at(std::size_t k, std::size_t r = 0) { return data() + r * pitch_ + k * cols_; }

    const double* at(std::size_t k, std::size_t r = 0) const
    {
        return data() + r * pitch_ + k * cols_;
    }

    operator BlockRowView() const { return {data(), rows_, cols_, n_, pitch_}; }

    // One matrix as a factor; all of them side by side; and all of them as one tall matrix, if dense.
    StridedView factor(std::size_t k) const { return BlockRowView(*this).factor(k); }

    StridedView side_by_side() const { return BlockRowView(*this).side_by_side(); }

    StridedView stacked() const { return {data(), rows_ * n_, cols_, cols_}; }

    void fill(double value) { store_ = value; }

private:
    static constexpr std::size_t LINE = 8, CACHE_WAY = 256;

    AlignedArray store_;
    std::size_t rows_ = 0;
    std::size_t cols_ = 0;
    std::size_t n_ = 0;
    std::size_t pitch_ = 0;
};

template <>
inline constexpr bool MADE_BY_CALLS<BlockRow> = true;

// What follows is described at its twin for one matrix, in model/matrix.h, model/linear.h and model/blas.h.

inline void take_shape(const BlockRow& of, BlockRow& to)
{
    to.set_shape(of.rows(), of.cols(), of.count());
}

inline void set_zero(BlockRow& A)
{
    A.fill(0.0);
}

inline void do_add(BlockRow& a, const BlockRow& b)
{
    add_rows(b.data(), b.pitch(), a.data(), a.pitch(), a.rows(), a.width());
}

inline BlockRowView rows_of(const BlockRowView& A, const RowRange& rows)
{
    return A.cut_rows(rows);
}

inline void colsum(const BlockRowView& A, BlockRow& out)
{
    out.set_shape(1, A.cols(), A.count());
    if (A.rows() == 0) {
        set_zero(out);
    } else {
        kernels().sum_columns(A.side_by_side(), out.data(), false);
    }
}

// The sums go on from what they hold, in one part: those of the rows below these, so that they become the column sums of a
// taller A.
inline void add_colsum(const BlockRowView& A, BlockRow& sums, std::size_t)
{
    kernels().sum_columns(A.side_by_side(), sums.data(), true);
}

// Matrix k takes the values of a matrix of its shape.
inline void put_matrix(BlockRow& all, std::size_t k, const RowsView& matrix)
{
    const double* const from = matrix.data;
    double* const to = all.at(k);
    if (all.pitch() == matrix.cols) {
        std::copy_n(from, matrix.size(), to);
        return;
    }
    // Column by column: rows are the outputs of a network, mostly few.
    for (std::size_t c = 0; c < matrix.cols; ++c) {
        for (std::size_t r = 0; r < matrix.rows; ++r) {
            to[r * all.pitch() + c] = from[r * matrix.cols + c];
        }
    }
}

inline void put_rows(BlockRow& whole, std::size_t first, const BlockRow& part)
{
    copy_rows(
        part.data(), part.pitch(), whole.at(0, first), whole.pitch(), part.rows(), part.width());
}

inline void take_rows(const BlockRow& whole, const RowRange& rows, BlockRow& part)
{
    part.set_shape(rows.count, whole.cols(), whole.count());
    copy_rows(whole.at(0, rows.first),
              whole.pitch(),
              part.data(),
              part.pitch(),
              rows.count,
              part.width());
}

// body(where columns first ... of row r of matrix k of whole lie, where that row of part lies) for all r and k.
template <class Whole, class Part, class Body>
void for_each_part_row(Whole& whole, std::size_t first, Part& part, const Body& body)
{
    for (std::size_t r = 0; r < part.rows(); ++r) {
        for (std::size_t k = 0; k < part.count(); ++k) body(whole.at(k, r) + first, part.at(k, r));
    }
}

inline void put_columns(BlockRow& whole, std::size_t first, const BlockRow& part)
{
    for_each_part_row(whole, first, part, [&](double* to, const double* from) {
        std::copy_n(from, part.cols(), to);
    });
}

inline void add_columns(const BlockRow& whole, std::size_t first, BlockRow& part)
{
    for_each_part_row(whole, first, part, [&](const double* from, double* to) {
        kernels().add(from, to, part.cols());
    });
}

inline void take_columns(const BlockRow& whole,
                         std::size_t first,
                         std::size_t width,
                         BlockRow& part)
{
    part.set_shape(whole.rows(), width, whole.count());
    for_each_part_row(
        whole, first, part, [&](const double* from, double* to) { std::copy_n(from, width, to); });
}

inline void transpose(const BlockRowView& A, BlockRow& At)
{
    At.set_shape(A.cols(), A.rows(), A.count());
    for (std::size_t r = 0; r < A.rows(); ++r) {
        for (std::size_t k = 0; k < A.count(); ++k) {
            const double* const from = A.at(k, r);
            double* const to = At.at(k) + r;
            for (std::size_t c = 0; c < A.cols(); ++c) to[c * At.pitch()] = from[c];
        }
    }
}

// C_k = A_k*B: one product where no gaps lie between.
inline void do_binmult(BlockRow& C, const BlockRow& A, const Factor& B, By by = By::kernels)
{
    C.set_shape(A.rows(), B.used_cols(), A.count());
    if (A.is_dense() && C.is_dense()) {
        product(A.stacked(), B, C.data(), Into::overwrite, by);
        return;
    }
    for (std::size_t k = 0; k < C.count(); ++k) {
        product(A.factor(k), B, C.at(k), C.pitch(), Into::overwrite, by);
    }
}

template <class Store>
void do_mult(const BlockRow& A, const DoubleMatrix<Store>& B, BlockRow& C, By by = By::kernels)
{
    do_binmult(C, A, Factor(B), by);
}

// C_k = A*B_k, one product.
inline void do_binmult(BlockRow& C, const Factor& A, const BlockRowView& B, By by = By::kernels)
{
    C.set_shape(A.used_rows(), B.cols(), B.count());
    product(A, B.side_by_side(), C.data(), C.pitch(), Into::overwrite, by);
}

// C_k += P_k in a range of rows. form(first, rows, to) writes some rows of all of them side by side, counted from the range's.
template <class Form>
void add_in_panels(BlockRow& C, const RowRange& range, WorkMatrix& room, const Form& form)
{
    const std::size_t width = C.width();
    if (width == 0) return;
    add_in_panels(C.data() + range.first * C.pitch(),
                  C.pitch(),
                  range.count,
                  width,
                  rows_of_a_sum(width),
                  room.store(),
                  form);
}

// C_k += A*B_k, in one part. Our kernels go on from C, so that the sums become those of a taller A and B.
inline void do_binmult_add(BlockRow& C,
                           const Factor& A,
                           const BlockRowView& B,
                           WorkMatrix& room,
                           By by = By::kernels,
                           std::size_t = WHOLE)
{
    if (by == By::kernels) return product(A, B.side_by_side(), C.data(), C.pitch(), Into::go_on);
    add_product(C.data(), C.pitch(), A, B.side_by_side(), room.store(), by);
}

}  // namespace VEMKN
