#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <new>
#include <type_traits>

#include "fad/fad1.h"
#include "model/blas.h"

namespace yafad {

using VEMKN::AlignedArray;
using VEMKN::Factor;
using VEMKN::WorkMatrix;

// The carrier to compute with: what a fad1 of a matrix holds, its N derivatives side by side in one array, so that one
// product or one loop serves all of them. Row r holds derivative 0 of row r of the value, then derivative 1 and so on:
//
//     entry (r, c) of derivative k      at r*pitch + k*cols + c
//
// A vector is a bundle of one row. Owns its storage; copied by value.
class Bundle {
public:
    Bundle() = default;

    // rows x cols with n derivatives, all without contents.
    void set_shape(std::uint64_t rows, std::uint64_t cols, std::size_t n)
    {
        value.resize(rows, cols);
        // Without derivatives, should there be no memory for them.
        n_ = pitch_ = 0;
        std::size_t pitch = n * value.cols();
        // Rows a multiple of 2 KB apart compete for the same lines of the cache.
        if (n > 1 && value.rows() > 1 && value.cols() >= LINE && pitch % CACHE_WAY == 0) {
            pitch += LINE;
        }
        if (pitch != 0 && value.rows() > PTRDIFF_MAX / sizeof(double) / pitch) {
            throw std::bad_alloc();
        }
        derivatives_.set_size(value.rows() * pitch);
        n_ = n;
        pitch_ = pitch;
    }

    std::size_t rows() const { return value.rows(); }

    std::size_t cols() const { return value.cols(); }

    // Number of elements of the value, and of each derivative.
    std::size_t size() const { return value.size(); }

    std::size_t directions() const { return n_; }

    std::size_t pitch() const { return pitch_; }

    // Whether no row is followed by a gap: all derivatives are then a matrix of rows*n rows, too.
    bool is_dense() const { return pitch_ == n_ * cols(); }

    double* derivatives() { return derivatives_.begin(); }

    const double* derivatives() const { return derivatives_.begin(); }

    // Where row r of derivative k begins.
    double* derivative(std::size_t k, std::size_t r = 0)
    {
        return derivatives() + r * pitch_ + k * cols();
    }

    const double* derivative(std::size_t k, std::size_t r = 0) const
    {
        return derivatives() + r * pitch_ + k * cols();
    }

    // One derivative as a factor; all of them side by side; and all of them as one tall matrix, if dense.
    Factor factor(std::size_t k) const { return {derivative(k), rows(), cols(), pitch_}; }

    Factor side_by_side() const { return {derivatives(), rows(), n_ * cols(), pitch_}; }

    Factor stacked() const { return {derivatives(), rows() * n_, cols(), cols()}; }

    WorkMatrix value;

private:
    static constexpr std::size_t LINE = 8, CACHE_WAY = 256;

    AlignedArray derivatives_;
    std::size_t n_ = 0;
    std::size_t pitch_ = 0;
};

// y takes the shape and the number of directions of x; its contents are left to the caller.
inline void take_shape(const Bundle& x, Bundle& y)
{
    y.set_shape(x.rows(), x.cols(), x.directions());
}

// Rows of n numbers += others; rows at `from` and at `to` are that far apart.
inline void add_rows(const double* from,
                     std::size_t from_pitch,
                     double* to,
                     std::size_t to_pitch,
                     std::size_t rows,
                     std::size_t n)
{
    const bool gaps = from_pitch != n || to_pitch != n;
    const std::size_t runs = gaps ? rows : 1, length = gaps ? n : rows * n;
    for (std::size_t r = 0; r < runs; ++r) {
        VEMKN::kernels().add(from + r * from_pitch, to + r * to_pitch, length);
    }
}

// The same as a carrier of separate derivatives, and back.

template <class T>
void bundle(const fad1<T>& carrier, Bundle& b)
{
    if constexpr (std::is_same_v<T, MatrixTemplate<double>>) {
        b.set_shape(carrier.rows(), carrier.cols(), carrier.directions());
    } else {
        b.set_shape(1, carrier.size(), carrier.directions());
    }
    std::copy_n(elements(carrier.value), b.size(), b.value.data());
    for (std::size_t k = 0; k < b.directions(); ++k) {
        const double* const from = elements(carrier.derivatives[k]);
        for (std::size_t r = 0; r < b.rows(); ++r) {
            std::copy_n(from + r * b.cols(), b.cols(), b.derivative(k, r));
        }
    }
}

template <class T>
Bundle bundle(const fad1<T>& carrier)
{
    Bundle b;
    bundle(carrier, b);
    return b;
}

template <class T>
void unbundle(const Bundle& b, fad1<T>& carrier)
{
    const auto shape = [&](T& part) {
        if constexpr (std::is_same_v<T, MatrixTemplate<double>>) {
            part.resize(b.rows(), b.cols());
        } else {
            VEMKN::set_size(part, b.size());
        }
    };
    shape(carrier.value);
    std::copy_n(b.value.data(), b.size(), elements(carrier.value));
    carrier.set_directions(b.directions());
    for (std::size_t k = 0; k < b.directions(); ++k) {
        shape(carrier.derivatives[k]);
        double* const to = elements(carrier.derivatives[k]);
        for (std::size_t r = 0; r < b.rows(); ++r) {
            std::copy_n(b.derivative(k, r), b.cols(), to + r * b.cols());
        }
    }
}

}  // namespace yafad

template <>
struct VEMKN::ValuesOf<yafad::Bundle> {
    using type = VEMKN::WorkMatrix;
};
