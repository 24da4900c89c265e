#pragma once

#include <algorithm>

#include "kernels/kernels.h"
#include "model/matrix.h"

// Element functions over whole arrays, strip by strip: what one loop leaves to the next stays in cache, and what only
// these loops need stays on the stack.

namespace VEMKN {

inline constexpr std::size_t STRIP = 512;

// Room for what is computed between two loops over a strip.
struct Strip {
    alignas(64) double data[STRIP];
};

// body(at, n) for every strip: n elements from element `at`.
template <class Body>
void for_each_strip(std::size_t elements, const Body& body)
{
    for (std::size_t at = 0; at < elements; at += STRIP) body(at, std::min(STRIP, elements - at));
}

// What F saves of n elements, computed into room; x itself where it saves nothing.
template <class F>
const double* saved_of(const double* x, double* room, std::size_t n)
{
    if constexpr (F::SAVES) {
        element_kernels<F>().saved(x, room, n);
        return room;
    } else {
        return x;
    }
}

// y = F(x), and into saved what the sweep needs. y may be x; then no sweep follows, and nothing is saved.
template <class F, class Store>
void apply(const DoubleMatrix<Store>& x, DoubleMatrix<Store>& y, DoubleMatrix<Store>& saved)
{
    const bool save = F::SAVES && &x != &y;
    take_shape(x, y);
    if (save) take_shape(x, saved);
    Strip room;
    for_each_strip(x.size(), [&](std::size_t at, std::size_t n) {
        double* const to = save ? saved.data() + at : room.data;
        const double* const of_strip = saved_of<F>(x.data() + at, to, n);
        element_kernels<F>().value(x.data() + at, of_strip, y.data() + at, n);
    });
}

// What the loops of a sweep take for `saved`: what the forward pass saved, or the values themselves.
template <class F, class Store>
const double* saved_or_x(const DoubleMatrix<Store>& x, const DoubleMatrix<Store>& saved)
{
    return F::SAVES ? saved.data() : x.data();
}

// xbar from ybar and what the forward pass saved; xbar may be ybar.
template <class F, class Store>
void adj_apply(const DoubleMatrix<Store>& x,
               const DoubleMatrix<Store>& saved,
               const DoubleMatrix<Store>& ybar,
               DoubleMatrix<Store>& xbar)
{
    take_shape(x, xbar);
    element_kernels<F>().vjp(x.data(), saved_or_x<F>(x, saved), ybar.data(), xbar.data(), x.size());
}

// v = F(x), element by element of a vector or a matrix; v has their number already.
template <class F, class T, class Array>
void apply_to(const T& x, Array& v)
{
    Strip room;
    for_each_strip(x.size(), [&](std::size_t at, std::size_t n) {
        const double* const saved = saved_of<F>(elements(x) + at, room.data, n);
        element_kernels<F>().value(elements(x) + at, saved, elements(v) + at, n);
    });
}

// What a sum of so many terms starts from: the zero that changes no number it is added to, not even -0.0, so that the
// first term counts as it is.
inline double empty_sum(std::size_t terms)
{
    return terms == 0 ? 0.0 : -0.0;
}

// s += terms, from the first to the last.
inline void add_up(const Strip& terms, std::size_t n, double& s)
{
    for (std::size_t i = 0; i < n; ++i) s += terms.data[i];
}

// s = sum of F over the elements of a vector or a matrix, from the first to the last.
template <class F, class T>
void sum_of(const T& x, double& s)
{
    Strip room, terms;
    s = empty_sum(x.size());
    for_each_strip(x.size(), [&](std::size_t at, std::size_t n) {
        const double* const saved = saved_of<F>(elements(x) + at, room.data, n);
        element_kernels<F>().value(elements(x) + at, saved, terms.data, n);
        add_up(terms, n, s);
    });
}

// xbar from ybar(at), the adjoints of the results from element `at` on, with nothing saved. xbar takes the shape of x and
// may hold those adjoints.
template <class F, class T, class Adjoint>
void adj_apply_to(const T& x, const Adjoint& ybar, T& xbar)
{
    take_shape(x, xbar);
    Strip room;
    for_each_strip(x.size(), [&](std::size_t at, std::size_t n) {
        const double* const saved = saved_of<F>(elements(x) + at, room.data, n);
        element_kernels<F>().vjp(elements(x) + at, saved, ybar(at), elements(xbar) + at, n);
    });
}

// xbar from an adjoint for each element.
template <class F, class T, class Array>
void adj_apply_each(const T& x, const Array& ybar, T& xbar)
{
    const double* const all = elements(ybar);
    adj_apply_to<F>(
        x, [=](std::size_t at) { return all + at; }, xbar);
}

// xbar from one adjoint for all of them: that of a sum.
template <class F, class T>
void adj_apply_same(const T& x, double ybar, T& xbar)
{
    Strip same;
    std::fill_n(same.data, std::min(x.size(), STRIP), ybar);
    adj_apply_to<F>(
        x, [&](std::size_t) { return same.data; }, xbar);
}

}  // namespace VEMKN
