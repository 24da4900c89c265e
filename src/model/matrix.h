#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <new>
#include <valarray>

#include "kernels/kernels.h"
#include "model/aligned_array.h"

namespace VEMKN {

// v gets n elements; new ones, zero, when that changes their number. Resizing or assigning a std::valarray in place would
// leave it with a released pointer when memory lacks, so a new one is made first here and below.
template <class T>
void set_size(std::valarray<T>& v, std::size_t n)
{
    if (v.size() != n) v = std::valarray<T>(n);
}

inline void set_size(AlignedArray& v, std::size_t n)
{
    v.set_size(n);
}

template <class T>
void assign(std::valarray<T>& to, const std::valarray<T>& from)
{
    if (to.size() == from.size()) {
        to = from;
    } else {
        to = std::valarray<T>(from);
    }
}

inline void assign(AlignedArray& to, const AlignedArray& from)
{
    to = from;
}

// Dense matrix, element (r, c) at r*cols + c. Owns its storage; copied by value. A network is described and held in
// matrices over std::valarray; calls compute with matrices over AlignedArray, and most routines serve both.
template <class T, class Store = std::valarray<T>>
class MatrixTemplate {
public:
    MatrixTemplate() = default;

    // Zeros.
    MatrixTemplate(std::uint64_t rows, std::uint64_t cols) { resize(rows, cols); }

    // A copy of rows*cols elements, row by row.
    MatrixTemplate(const T* elements, std::uint64_t rows, std::uint64_t cols)
        : store_(elements, area(rows, cols)), rows_(narrow(rows)), cols_(narrow(cols))
    {
    }

    MatrixTemplate(const MatrixTemplate&) = default;
    MatrixTemplate(MatrixTemplate&&) noexcept = default;
    MatrixTemplate& operator=(MatrixTemplate&&) noexcept = default;

    MatrixTemplate& operator=(const MatrixTemplate& other)
    {
        assign(store_, other.store_);
        rows_ = other.rows_;
        cols_ = other.cols_;
        return *this;
    }

    std::size_t rows() const { return rows_; }

    std::size_t cols() const { return cols_; }

    std::size_t size() const { return store_.size(); }

    T* data() { return std::begin(store_); }

    const T* data() const { return std::begin(store_); }

    Store& store() { return store_; }

    const Store& store() const { return store_; }

    T& operator()(std::size_t r, std::size_t c) { return store_[r * cols_ + c]; }

    const T& operator()(std::size_t r, std::size_t c) const { return store_[r * cols_ + c]; }

    // Zero-fills only when the number of elements changes (an AlignedArray does not); else the elements stay as they stand.
    void resize(std::uint64_t rows, std::uint64_t cols)
    {
        set_size(store_, area(rows, cols));
        rows_ = narrow(rows);
        cols_ = narrow(cols);
    }

private:
    // Dimensions are 32-bit numbers kept in 64-bit fields.
    static std::uint64_t narrow(std::uint64_t n) { return static_cast<std::uint32_t>(n); }

    // Number of elements. A valarray that cannot be addressed would not throw by itself, but wrap around.
    static std::size_t area(std::uint64_t rows, std::uint64_t cols)
    {
        const std::size_t elements = narrow(rows) * narrow(cols);
        if (elements > PTRDIFF_MAX / sizeof(T)) throw std::bad_alloc();
        return elements;
    }

    Store store_;
    std::uint64_t rows_ = 0;
    std::uint64_t cols_ = 0;
};

// A matrix of doubles over either storage, and the one that calls compute with.
template <class Store>
using DoubleMatrix = MatrixTemplate<double, Store>;
using WorkMatrix = DoubleMatrix<AlignedArray>;

// The matrix of doubles that holds the values of a matrix of doubles or of carriers.
template <class Matrix>
struct ValuesOf {
    using type = Matrix;
};

template <class Matrix>
using Kept = typename ValuesOf<Matrix>::type;

// Some rows of a matrix that somebody else owns, contiguous and row by row: a caller's batch, a slice
// of it, or a whole MatrixTemplate. A batch is a constant, so nothing ever writes through it.
struct RowsView {
    const double* data = nullptr;
    std::size_t rows = 0;
    std::size_t cols = 0;

    RowsView() = default;

    RowsView(const double* elements, std::size_t nrows, std::size_t ncols)
        : data(elements), rows(nrows), cols(ncols)
    {
    }

    template <class Store>
    RowsView(const DoubleMatrix<Store>& m) : data(m.data()), rows(m.rows()), cols(m.cols())
    {
    }

    std::size_t size() const { return rows * cols; }

    RowsView slice(std::size_t first, std::size_t count) const
    {
        return {data + first * cols, count, cols};
    }
};

// The store of a matrix as a vector.
template <class Store>
const Store& asVector(const DoubleMatrix<Store>& A)
{
    return A.store();
}

// The elements of a vector or a matrix.
template <class Array>
auto elements(Array& v)
{
    return std::begin(v);
}

template <class Store>
double* elements(DoubleMatrix<Store>& m)
{
    return m.data();
}

template <class Store>
const double* elements(const DoubleMatrix<Store>& m)
{
    return m.data();
}

// to takes the shape of `of`; its contents are left to the caller.
template <class Array>
void take_shape(const Array& of, Array& to)
{
    set_size(to, of.size());
}

template <class Store>
void take_shape(const DoubleMatrix<Store>& of, DoubleMatrix<Store>& to)
{
    to.resize(of.rows(), of.cols());
}

// Sum over the rows of every column, each summed from the last row up to the first.
//   A : rows x cols        out : overwritten, cols entries
template <class Store>
void colsum(const DoubleMatrix<Store>& A, Store& out)
{
    const std::size_t cols = A.cols();
    set_size(out, cols);
    if (A.rows() == 0) {
        out = 0.0;
    } else {
        kernels().sum_columns(A.data(), A.rows(), cols, cols, std::begin(out));
    }
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

// A = zeros of that shape.
template <class Store>
void set_zero(DoubleMatrix<Store>& A, std::size_t rows, std::size_t cols)
{
    A.resize(rows, cols);
    A.store() = 0.0;
}

// At = transpose of A, block by block so that both are walked in cache lines.
template <class Store>
void transpose(const DoubleMatrix<Store>& A, DoubleMatrix<Store>& At)
{
    constexpr std::size_t BLOCK = 8;
    const std::size_t rows = A.rows(), cols = A.cols();
    At.resize(cols, rows);
    for (std::size_t r0 = 0; r0 < rows; r0 += BLOCK) {
        for (std::size_t c0 = 0; c0 < cols; c0 += BLOCK) {
            for (std::size_t c = c0; c < std::min(c0 + BLOCK, cols); ++c) {
                for (std::size_t r = r0; r < std::min(r0 + BLOCK, rows); ++r) At(c, r) = A(r, c);
            }
        }
    }
}

// a += b, element by element; same shapes.
template <class Array>
void do_add(Array& a, const Array& b)
{
    kernels().add(elements(b), elements(a), a.size());
}

}  // namespace VEMKN
