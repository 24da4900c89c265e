#pragma once

#include "fad/active.h"
#include "fad/bundle.h"
#include "model/params.h"

// The linear operations of the double containers, over bundles: the same on the value and on every derivative. What
// each does is described at its double twin.

namespace yafad {

// A vector of bundles is a bundle of one row, or whatever shape the matrix has whose elements it holds.

inline const Bundle& asVector(const Bundle& A)
{
    return A;
}

inline void shape_vector(const Bundle& of, Bundle& v)
{
    take_shape(of, v);
}

inline std::size_t numbers_of_an_entry(const Bundle& x)
{
    return 1 + x.tangents();
}

inline WorkScalar scalar_like(const Bundle&)
{
    return WorkScalar(0.0);
}

inline void set_zero(Bundle& A)
{
    VEMKN::set_zero(A.value);
    VEMKN::set_zero(A.derivatives);
}

inline void colsum(const BundleView& A, Bundle& out)
{
    out.value.resize(1, A.value.cols);
    VEMKN::colsum(A.value, out.value.store());
    VEMKN::colsum(A.derivatives, out.derivatives);
}

inline void add_colsum(const BundleView& A, Bundle& sums, std::size_t part)
{
    VEMKN::add_colsum(A.value, sums.value.store(), part);
    VEMKN::add_colsum(A.derivatives.side_by_side(), sums.derivatives.data(), part);
}

// A = zeros of that shape with as many tangents as the process counts.
inline void set_zero(Bundle& A, std::size_t rows, std::size_t cols)
{
    A.set_shape(rows, cols, tangent_count);
    set_zero(A);
}

inline Bundle zeros_like(const Bundle& A)
{
    Bundle zeros;
    take_shape(A, zeros);
    set_zero(zeros);
    return zeros;
}

// a += b, bundles of the same shape.
inline void do_add(Bundle& a, const Bundle& b)
{
    VEMKN::do_add(a.value, b.value);
    VEMKN::do_add(a.derivatives, b.derivatives);
}

// R -= Y for constants Y, whose derivatives are zero: only the value changes.
inline void subtract_rows(Bundle& R, const RowsView& Y)
{
    VEMKN::subtract_rows(R.value, Y);
}

inline void shape_rows(Bundle& whole, const Bundle& part, std::size_t rows)
{
    whole.set_shape(rows, part.cols(), part.tangents());
}

inline void put_rows(Bundle& whole, std::size_t first, const Bundle& part)
{
    VEMKN::put_rows(whole.value, first, part.value);
    VEMKN::put_rows(whole.derivatives, first, part.derivatives);
}

inline void take_rows(const Bundle& whole, const VEMKN::RowRange& rows, Bundle& part)
{
    VEMKN::take_rows(whole.value, rows, part.value);
    VEMKN::take_rows(whole.derivatives, rows, part.derivatives);
}

inline void shape_columns(Bundle& whole, const Bundle& part, std::size_t n)
{
    whole.set_shape(part.rows(), n * part.cols(), part.tangents());
}

inline void put_columns(Bundle& whole, std::size_t first, const Bundle& part)
{
    VEMKN::put_columns(whole.value, first, part.value);
    VEMKN::put_columns(whole.derivatives, first, part.derivatives);
}

inline void add_columns(const Bundle& whole, std::size_t first, Bundle& part)
{
    VEMKN::add_columns(whole.value, first, part.value);
    VEMKN::add_columns(whole.derivatives, first, part.derivatives);
}

inline void take_columns(const Bundle& whole, std::size_t first, std::size_t width, Bundle& part)
{
    VEMKN::take_columns(whole.value, first, width, part.value);
    VEMKN::take_columns(whole.derivatives, first, width, part.derivatives);
}

}  // namespace yafad
