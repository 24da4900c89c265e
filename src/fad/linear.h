#pragma once

#include "adjoint/norms.h"
#include "api/params.h"
#include "fad/fad1.h"

// The linear operations of the double containers, over carriers: the same on the value and on every derivative. What
// each does is told at its double twin.

namespace yafad {

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

inline void colsum(const MatrixCarrier& A, VectorCarrier& out)
{
    out.set_directions(A.directions());
    each_part([](const auto& from, auto& to) { VEMKN::colsum(from, to); }, A, out);
}

inline VectorCarrier colsum(const MatrixCarrier& A)
{
    VectorCarrier out;
    colsum(A, out);
    return out;
}

inline void transpose(const MatrixCarrier& A, MatrixCarrier& At)
{
    At.set_directions(A.directions());
    each_part([](const auto& from, auto& to) { VEMKN::transpose(from, to); }, A, At);
}

inline void shape_rows(MatrixCarrier& whole, const MatrixCarrier& part, std::size_t rows)
{
    whole.set_directions(part.directions());
    each_part([&](const auto& from, auto& to) { VEMKN::shape_rows(to, from, rows); }, part, whole);
}

inline void put_rows(MatrixCarrier& whole, std::size_t first, const MatrixCarrier& part)
{
    each_part([&](const auto& from, auto& to) { VEMKN::put_rows(to, first, from); }, part, whole);
}

inline void shape_columns(MatrixCarrier& whole, const MatrixCarrier& part, std::size_t n)
{
    whole.set_directions(part.directions());
    each_part([&](const auto& from, auto& to) { VEMKN::shape_columns(to, from, n); }, part, whole);
}

inline void put_columns(MatrixCarrier& whole, std::size_t first, const MatrixCarrier& part)
{
    each_part(
        [&](const auto& from, auto& to) { VEMKN::put_columns(to, first, from); }, part, whole);
}

inline void add_columns(const MatrixCarrier& whole, std::size_t first, MatrixCarrier& part)
{
    each_part(
        [&](const auto& from, auto& to) { VEMKN::add_columns(from, first, to); }, whole, part);
}

inline void take_columns(const MatrixCarrier& whole,
                         std::size_t first,
                         std::size_t width,
                         MatrixCarrier& part)
{
    part.set_directions(whole.directions());
    each_part([&](const auto& from, auto& to) { VEMKN::take_columns(from, first, width, to); },
              whole,
              part);
}

template <class T>
fad1<T> zeros_like(const fad1<T>& a)
{
    fad1<T> zeros;
    take_shape(a, zeros);
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

// A = zeros of that shape with g_ndd directions.
inline void set_zero(MatrixCarrier& A, std::size_t rows, std::size_t cols)
{
    A.set_directions(g_ndd);
    each_part([&](auto& part) { VEMKN::set_zero(part, rows, cols); }, A);
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

// R -= Y for constants Y, whose derivatives are zero: only the value changes.
inline void subtract_rows(MatrixCarrier& R, const RowsView& Y)
{
    VEMKN::subtract_rows(R.value, Y);
}

}  // namespace yafad
