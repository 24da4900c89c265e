#pragma once

#include "fad/active.h"
#include "fad/elementary/fad1.h"
#include "model/params.h"

// The linear operations of the double containers, over carriers: the same on the value and on every derivative.

namespace yafad {

inline VectorCarrier asVector(const MatrixCarrier& A)
{
    VectorCarrier v;
    v.set_tangents(A.tangents());
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
    A.set_tangents(v.tangents());
    each_part(
        [&](MatrixTemplate<double>& to, const std::valarray<double>& from) {
            to.resize(rows, cols);
            VEMKN::assign(to.store(), from);
        },
        A,
        v);
    return A;
}

// A vector carrier with as many elements and tangents as x, and a scalar one, as norms return them; contents are left to
// the caller.
template <class T>
VectorCarrier vector_like(const fad1<T>& x)
{
    VectorCarrier v;
    v.set_tangents(x.tangents());
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
    out.set_tangents(A.tangents());
    each_part([](const auto& from, auto& to) { VEMKN::colsum(from, to); }, A, out);
    return out;
}

template <class T>
fad1<T> zeros_like(const fad1<T>& a)
{
    fad1<T> zeros;
    zeros.set_tangents(a.tangents());
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
    part.set_tangents(flat.tangents());
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
