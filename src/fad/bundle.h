#pragma once

#include <cstddef>
#include <cstdint>

#include "model/block_row.h"

namespace yafad {

using VEMKN::AlignedArray;
using VEMKN::BlockRow;
using VEMKN::BlockRowView;
using VEMKN::elements;
using VEMKN::Factor;
using VEMKN::RowsView;
using VEMKN::WorkMatrix;

// The carrier to compute with: a matrix and its derivatives along N tangents, side by side. A vector is a bundle of one row.
// Owns its storage; copied by value.
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

    std::size_t tangents() const { return derivatives.count(); }

    WorkMatrix value;
    BlockRow derivatives;
};

// Some rows of a bundle that somebody else owns, or all of them.
struct BundleView {
    BundleView(const RowsView& of_value, const BlockRowView& of_derivatives)
        : value(of_value), derivatives(of_derivatives)
    {
    }

    BundleView(const Bundle& all) : BundleView(all.value, all.derivatives) {}

    RowsView value;
    BlockRowView derivatives;
};

inline BundleView rows_of(const BundleView& A, const VEMKN::RowRange& rows)
{
    return {VEMKN::rows_of(A.value, rows), VEMKN::rows_of(A.derivatives, rows)};
}

// y takes the shape and the number of tangents of x; its contents are left to the caller.
inline void take_shape(const Bundle& x, Bundle& y)
{
    y.set_shape(x.rows(), x.cols(), x.tangents());
}

}  // namespace yafad

template <>
inline constexpr bool VEMKN::MADE_BY_CALLS<yafad::Bundle> = true;

template <>
struct VEMKN::PlainOf<yafad::Bundle> {
    using type = VEMKN::WorkMatrix;
};
