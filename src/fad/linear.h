#pragma once

#include "adjoint/norms.h"
#include "api/params.h"
#include "fad/products.h"

// The linear operations of the double containers, over carriers: the same on the value and on every derivative. What
// each does is told at its double twin.

namespace yafad {

// A vector of bundles is a bundle of one row, or whatever shape the matrix has whose elements it holds.

inline const Bundle& asVector(const Bundle& A)
{
    return A;
}

inline Bundle vector_like(const Bundle& x)
{
    Bundle v;
    take_shape(x, v);
    return v;
}

inline FO::Dynamic::Active<1> scalar_like(const Bundle&)
{
    return FO::Dynamic::Active<1>(0.0);
}

inline void set_zero(Bundle& A)
{
    VEMKN::set_zero(A.value);
    VEMKN::set_zero(A.derivatives);
}

inline void colsum(const Bundle& A, Bundle& out)
{
    out.value.resize(1, A.cols());
    VEMKN::colsum(A.value, out.value.store());
    VEMKN::colsum(A.derivatives, out.derivatives);
}

// A = zeros of that shape with g_ndd directions.
inline void set_zero(Bundle& A, std::size_t rows, std::size_t cols)
{
    A.set_shape(rows, cols, g_ndd);
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
    whole.set_shape(rows, part.cols(), part.directions());
}

inline void put_rows(Bundle& whole, std::size_t first, const Bundle& part)
{
    VEMKN::put_rows(whole.value, first, part.value);
    VEMKN::put_rows(whole.derivatives, first, part.derivatives);
}

inline void shape_columns(Bundle& whole, const Bundle& part, std::size_t n)
{
    whole.set_shape(part.rows(), n * part.cols(), part.directions());
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

// Carriers of separate derivatives.

inline VectorCarrier asVector(const MatrixCarrier& A)
{
    VectorCarrier v;
    v.set_directions(A.directions());
    each_part([](std::valarray<double>& to,
                 const MatrixTemplate<double>& from) { VEMKN::assign(to, from.store()); },
              v,
              A);
    return v;
}

// v in the shape rows x cols.
inline MatrixCarrier asMatrix(const VectorCarrier& v, std::size_t rows, std::size_t cols)
{
    MatrixCarrier A;
    A.set_directions(v.directions());
    each_part(
        [&](MatrixTemplate<double>& to, const std::valarray<double>& from) {
            to.resize(rows, cols);
            VEMKN::assign(to.store(), from);
        },
        A,
        v);
    return A;
}

// A vector carrier with as many elements and directions as x, and a scalar one, as norms return them; contents are left to
// the caller.
template <class T>
VectorCarrier vector_like(const fad1<T>& x)
{
    VectorCarrier v;
    v.set_directions(x.directions());
    VEMKN::set_size(v.value, x.size());
    for (auto& derivative : v.derivatives) VEMKN::set_size(derivative, x.size());
    return v;
}

template <class T>
FO::Dynamic::Active<1> scalar_like(const fad1<T>&)
{
    return FO::Dynamic::Active<1>(0.0);
}

inline VectorCarrier colsum(const MatrixCarrier& A)
{
    VectorCarrier out;
    out.set_directions(A.directions());
    each_part([](const auto& from, auto& to) { VEMKN::colsum(from, to); }, A, out);
    return out;
}

template <class T>
fad1<T> zeros_like(const fad1<T>& a)
{
    fad1<T> zeros;
    zeros.set_directions(a.directions());
    each_part([](const T& like, T& part) { part = VEMKN::zeros_like(like); }, a, zeros);
    return zeros;
}

template <class T>
void do_add(fad1<T>& a, const fad1<T>& b)
{
    each_part([](auto& to, const auto& from) { VEMKN::do_add(to, from); }, a, b);
}

template <class T>
void set_zero(fad1<T>& a)
{
    each_part([](auto& part) { VEMKN::set_zero(part); }, a);
}

template <class T>
void take_elements(const VectorCarrier& flat, std::size_t first, fad1<T>& part)
{
    part.set_directions(flat.directions());
    each_part(
        [&](const auto& from, T& to) {
            take_shape(part.value, to);
            VEMKN::take_elements(from, first, to);
        },
        flat,
        part);
}

template <class T>
void put_elements(VectorCarrier& flat, std::size_t first, const fad1<T>& part)
{
    each_part(
        [&](const auto& from, auto& to) { VEMKN::put_elements(to, first, from); }, part, flat);
}

}  // namespace yafad
