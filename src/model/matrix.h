#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <new>
#include <type_traits>
#include <utility>
#include <valarray>
#include <vector>

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

    // Zeros; over an AlignedArray without contents.
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

// The plain matrix that goes with a matrix of doubles or of carriers: the one that its values lie in.
template <class Matrix>
struct PlainOf {
    using type = Matrix;
};

template <class Matrix>
using Plain = typename PlainOf<Matrix>::type;

// A weight matrix that somebody else holds, row by row.
class WeightsView {
public:
    WeightsView(const double* data, std::size_t rows, std::size_t cols)
        : data_(data), rows_(rows), cols_(cols)
    {
    }

    std::size_t rows() const { return rows_; }

    std::size_t cols() const { return cols_; }

    std::size_t size() const { return rows_ * cols_; }

    const double* data() const { return data_; }

private:
    const double* data_;
    std::size_t rows_, cols_;
};

// A bias vector that somebody else holds.
class BiasView {
public:
    BiasView(const double* data, std::size_t size) : data_(data), size_(size) {}

    std::size_t size() const { return size_; }

    const double* begin() const { return data_; }

    const double* end() const { return data_ + size_; }

private:
    const double* data_;
    std::size_t size_;
};

// The list of the matrices or vectors of a model: calls make those of what they compute with, hosts hold any other.
template <class T>
inline constexpr bool MADE_BY_CALLS = false;
template <>
inline constexpr bool MADE_BY_CALLS<AlignedArray> = true;
template <>
inline constexpr bool MADE_BY_CALLS<WorkMatrix> = true;
template <>
inline constexpr bool MADE_BY_CALLS<WeightsView> = true;
template <>
inline constexpr bool MADE_BY_CALLS<BiasView> = true;

template <class T>
using ListOf = std::conditional_t<MADE_BY_CALLS<T>, CallList<T>, std::vector<T>>;

// Some rows of a matrix.
struct RowRange {
    std::size_t first, count;
};

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

    RowsView(const WeightsView& m) : data(m.data()), rows(m.rows()), cols(m.cols()) {}

    std::size_t size() const { return rows * cols; }

    RowsView slice(std::size_t first, std::size_t count) const
    {
        return {data + first * cols, count, cols};
    }
};

inline RowsView rows_of(const RowsView& A, const RowRange& rows)
{
    return A.slice(rows.first, rows.count);
}

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

template <class Array>
void set_zero(Array& v)
{
    v = 0.0;
}

template <class Store>
void set_zero(DoubleMatrix<Store>& A)
{
    A.store() = 0.0;
}

// A = zeros of that shape.
template <class Store>
void set_zero(DoubleMatrix<Store>& A, std::size_t rows, std::size_t cols)
{
    A.resize(rows, cols);
    set_zero(A);
}

// A vector or matrix of that shape, zeros.
template <class Array>
Array zeros_like(const Array& v)
{
    return Array(v.size());
}

template <class Store>
DoubleMatrix<Store> zeros_like(const DoubleMatrix<Store>& A)
{
    DoubleMatrix<Store> zeros;
    set_zero(zeros, A.rows(), A.cols());
    return zeros;
}

inline WorkMatrix zeros_like(const WeightsView& A)
{
    WorkMatrix zeros;
    set_zero(zeros, A.rows(), A.cols());
    return zeros;
}

inline AlignedArray zeros_like(const BiasView& b)
{
    return AlignedArray(b.size());
}

// The vector and scalar types that go with a vector or a matrix; a vector with as many elements as x.
template <class Array>
Array vector_like(const Array& x)
{
    return Array(x.size());
}

// v takes as many elements as a matrix has.
template <class Store>
void shape_vector(const DoubleMatrix<Store>& of, Store& v)
{
    set_size(v, of.size());
}

template <class Store>
Store vector_like(const DoubleMatrix<Store>& x)
{
    return Store(x.size());
}

template <class Array>
double scalar_like(const Array&)
{
    return 0.0;
}

// How many numbers there are to an entry: the value, and its tangents where it has some.
template <class Store>
std::size_t numbers_of_an_entry(const DoubleMatrix<Store>&)
{
    return 1;
}

inline std::size_t numbers_of_an_entry(const WeightsView&)
{
    return 1;
}

template <class T>
using VectorOf = decltype(vector_like(std::declval<const T&>()));
template <class T>
using ScalarOf = decltype(scalar_like(std::declval<const T&>()));

}  // namespace VEMKN
