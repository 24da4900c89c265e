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

// The elements of A, in its shape, take those of v.
inline void assign_store(MatrixCarrier& A, VectorCarrier&& v)
{
    A = asMatrix(v, A.rows(), A.cols());
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

// Sum of the elements, from the first to the last.
inline FO::Dynamic::Active<1> sum(const VectorCarrier& v)
{
    FO::Dynamic::Active<1> s(VEMKN::sum(v.value));
    for (std::size_t k = 0; k < v.directions(); ++k) {
        s.derivatives[k] = VEMKN::sum(v.derivatives[k]);
    }
    return s;
}

namespace FO::Dynamic {

// s in each of n elements: the adjoint of sum. Stands where lookup by its argument finds it.
inline VectorCarrier spread(const Active<1>& s, std::size_t n)
{
    VectorCarrier v;
    v.value = VEMKN::spread(s.value, n);
    v.set_directions(s.N);
    for (std::size_t k = 0; k < s.N; ++k) v.derivatives[k] = VEMKN::spread(s.derivatives[k], n);
    return v;
}

}  // namespace FO::Dynamic

}  // namespace yafad
