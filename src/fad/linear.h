#pragma once

#include "adjoint/norms.h"
#include "api/params.h"
#include "fad/fad1.h"

// The linear operations of the double containers, over carriers: the same on the value and on every derivative. What
// each does is told at its double twin.

namespace yafad {

template <class Store>
CarrierVector<Store> asVector(const CarrierMatrix<Store>& A)
{
    CarrierVector<Store> v;
    v.set_directions(A.directions());
    each_part([](auto& to, const auto& from) { VEMKN::assign(to, from.store()); }, v, A);
    return v;
}

// v in the shape rows x cols.
template <class Store>
CarrierMatrix<Store> asMatrix(const CarrierVector<Store>& v, std::size_t rows, std::size_t cols)
{
    CarrierMatrix<Store> A;
    A.set_directions(v.directions());
    each_part(
        [&](auto& to, const auto& from) {
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
fad1<VEMKN::VectorOf<T>> vector_like(const fad1<T>& x)
{
    fad1<VEMKN::VectorOf<T>> v;
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

template <class Store>
void colsum(const CarrierMatrix<Store>& A, CarrierVector<Store>& out)
{
    out.set_directions(A.directions());
    each_part([](const auto& from, auto& to) { VEMKN::colsum(from, to); }, A, out);
}

template <class Store>
CarrierVector<Store> colsum(const CarrierMatrix<Store>& A)
{
    CarrierVector<Store> out;
    colsum(A, out);
    return out;
}

template <class Store>
void transpose(const CarrierMatrix<Store>& A, CarrierMatrix<Store>& At)
{
    At.set_directions(A.directions());
    each_part([](const auto& from, auto& to) { VEMKN::transpose(from, to); }, A, At);
}

template <class Store>
void shape_rows(CarrierMatrix<Store>& whole, const CarrierMatrix<Store>& part, std::size_t rows)
{
    whole.set_directions(part.directions());
    each_part([&](const auto& from, auto& to) { VEMKN::shape_rows(to, from, rows); }, part, whole);
}

template <class Store>
void put_rows(CarrierMatrix<Store>& whole, std::size_t first, const CarrierMatrix<Store>& part)
{
    each_part([&](const auto& from, auto& to) { VEMKN::put_rows(to, first, from); }, part, whole);
}

template <class Store>
void shape_columns(CarrierMatrix<Store>& whole, const CarrierMatrix<Store>& part, std::size_t n)
{
    whole.set_directions(part.directions());
    each_part([&](const auto& from, auto& to) { VEMKN::shape_columns(to, from, n); }, part, whole);
}

template <class Store>
void put_columns(CarrierMatrix<Store>& whole, std::size_t first, const CarrierMatrix<Store>& part)
{
    each_part(
        [&](const auto& from, auto& to) { VEMKN::put_columns(to, first, from); }, part, whole);
}

template <class Store>
void add_columns(const CarrierMatrix<Store>& whole, std::size_t first, CarrierMatrix<Store>& part)
{
    each_part(
        [&](const auto& from, auto& to) { VEMKN::add_columns(from, first, to); }, whole, part);
}

template <class Store>
void take_columns(const CarrierMatrix<Store>& whole,
                  std::size_t first,
                  std::size_t width,
                  CarrierMatrix<Store>& part)
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

// A = zeros of that shape with g_ndd directions.
template <class Store>
void set_zero(CarrierMatrix<Store>& A, std::size_t rows, std::size_t cols)
{
    A.set_directions(g_ndd);
    each_part([&](auto& part) { VEMKN::set_zero(part, rows, cols); }, A);
}

template <class Flat, class T>
void take_elements(const fad1<Flat>& flat, std::size_t first, fad1<T>& part)
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

template <class Flat, class T>
void put_elements(fad1<Flat>& flat, std::size_t first, const fad1<T>& part)
{
    each_part(
        [&](const auto& from, auto& to) { VEMKN::put_elements(to, first, from); }, part, flat);
}

// v with g_ndd derivatives that are zero even where v is not finite.
template <class T>
fad1<T> with_zero_derivatives(const T& v)
{
    fad1<T> x;
    x.value = v;
    x.set_directions(g_ndd);
    for (T& derivative : x.derivatives) derivative = VEMKN::zeros_like(v);
    return x;
}

// R -= Y for constants Y, whose derivatives are zero: only the value changes.
template <class Store>
void subtract_rows(CarrierMatrix<Store>& R, const RowsView& Y)
{
    VEMKN::subtract_rows(R.value, Y);
}

}  // namespace yafad
