#pragma once

#include <algorithm>

#include "kernels/kernels.h"
#include "model/matrix.h"

// Element functions over whole arrays, block by block: what one loop leaves to the next stays in cache, and what only
// these loops need stays on the stack.

namespace VEMKN {

inline constexpr std::size_t BLOCK = 512;

// A block of intermediates.
struct Block {
    alignas(64) double data[BLOCK];
};

// body(at, n) for every block: n elements from element `at`.
template <class Body>
void for_each_block(std::size_t elements, const Body& body)
{
    for (std::size_t at = 0; at < elements; at += BLOCK) body(at, std::min(BLOCK, elements - at));
}

// t of n elements: computed into room, or x itself where F has no inner function.
template <class F>
const double* inner_of(const double* x, double* room, std::size_t n)
{
    if constexpr (F::HAS_INNER) {
        element_kernels<F>().inner(x, room, n);
        return room;
    } else {
        return x;
    }
}

// y = F(x); y may be x, and then no sweep follows and nothing is kept. Else kept = t, where F has an inner function.
template <class F, class Store>
void apply(const DoubleMatrix<Store>& x, DoubleMatrix<Store>& y, DoubleMatrix<Store>& kept)
{
    const bool keep = F::HAS_INNER && &x != &y;
    take_shape(x, y);
    if (keep) take_shape(x, kept);
    Block room;
    for_each_block(x.size(), [&](std::size_t at, std::size_t n) {
        double* const to = keep ? kept.data() + at : room.data;
        const double* const t = inner_of<F>(x.data() + at, to, n);
        element_kernels<F>().value(x.data() + at, t, y.data() + at, n);
    });
}

// What the loops of a sweep take for t: what was kept, or the values themselves.
template <class F, class Store>
const double* kept_of(const DoubleMatrix<Store>& x, const DoubleMatrix<Store>& kept)
{
    return F::HAS_INNER ? kept.data() : x.data();
}

// xbar from ybar and what the forward pass kept; xbar may be ybar.
template <class F, class Store>
void adj_apply(const DoubleMatrix<Store>& x,
               const DoubleMatrix<Store>& kept,
               const DoubleMatrix<Store>& ybar,
               DoubleMatrix<Store>& xbar)
{
    take_shape(x, xbar);
    element_kernels<F>().pull(x.data(), kept_of<F>(x, kept), ybar.data(), xbar.data(), x.size());
}

// v = F(x), element by element of a vector or a matrix; v has their number already.
template <class F, class T, class Array>
void apply_to(const T& x, Array& v)
{
    Block room;
    for_each_block(x.size(), [&](std::size_t at, std::size_t n) {
        const double* const t = inner_of<F>(elements(x) + at, room.data, n);
        element_kernels<F>().value(elements(x) + at, t, elements(v) + at, n);
    });
}

// What a sum of so many terms starts from: the zero that changes no number it is added to, not even -0.0, so that the
// first term counts as it is.
inline double empty_sum(std::size_t terms)
{
    return terms == 0 ? 0.0 : -0.0;
}

// s += terms, from the first to the last.
inline void add_up(const Block& terms, std::size_t n, double& s)
{
    for (std::size_t i = 0; i < n; ++i) s += terms.data[i];
}

// s = sum of F over the elements of a vector or a matrix, from the first to the last.
template <class F, class T>
void sum_of(const T& x, double& s)
{
    Block room, terms;
    s = empty_sum(x.size());
    for_each_block(x.size(), [&](std::size_t at, std::size_t n) {
        const double* const t = inner_of<F>(elements(x) + at, room.data, n);
        element_kernels<F>().value(elements(x) + at, t, terms.data, n);
        add_up(terms, n, s);
    });
}

// xbar from ybar(at), the adjoints of the results from element `at` on, with nothing kept. xbar takes the shape of x and
// may hold those adjoints.
template <class F, class T, class Adjoint>
void adj_apply_to(const T& x, const Adjoint& ybar, T& xbar)
{
    take_shape(x, xbar);
    Block room;
    for_each_block(x.size(), [&](std::size_t at, std::size_t n) {
        const double* const t = inner_of<F>(elements(x) + at, room.data, n);
        element_kernels<F>().pull(elements(x) + at, t, ybar(at), elements(xbar) + at, n);
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
    Block same;
    std::fill_n(same.data, std::min(x.size(), BLOCK), ybar);
    adj_apply_to<F>(
        x, [&](std::size_t) { return same.data; }, xbar);
}

}  // namespace VEMKN
