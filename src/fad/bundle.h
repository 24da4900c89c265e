#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "fad/fad1.h"
#include "model/block_row.h"

namespace yafad {

using VEMKN::AlignedArray;
using VEMKN::BlockRow;
using VEMKN::Factor;
using VEMKN::WorkMatrix;

// The carrier to compute with: what a fad1 of a matrix holds, its N derivatives side by side. A vector is a bundle of one
// row. Owns its storage; copied by value.
struct Bundle {
    // rows x cols with n derivatives, all without contents.
    void set_shape(std::uint64_t rows, std::uint64_t cols, std::size_t n)
    {
        value.resize(rows, cols);
        derivatives.set_shape(value.rows(), value.cols(), n);
    }

    std::size_t rows() const { return value.rows(); }

    std::size_t cols() const { return value.cols(); }

    // Number of elements of the value, and of each derivative.
    std::size_t size() const { return value.size(); }

    std::size_t directions() const { return derivatives.number(); }

    WorkMatrix value;
    BlockRow derivatives;
};

// y takes the shape and the number of directions of x; its contents are left to the caller.
inline void take_shape(const Bundle& x, Bundle& y)
{
    y.set_shape(x.rows(), x.cols(), x.directions());
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
            std::copy_n(from + r * b.cols(), b.cols(), b.derivatives.at(k, r));
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
            std::copy_n(b.derivatives.at(k, r), b.cols(), to + r * b.cols());
        }
    }
}

}  // namespace yafad

template <>
struct VEMKN::ValuesOf<yafad::Bundle> {
    using type = VEMKN::WorkMatrix;
};
