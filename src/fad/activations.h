#pragma once

#include "adjoint/activations.h"
#include "fad/active.h"
#include "fad/fad1.h"

// Element functions over carriers, the counterpart of eval/element_loops.h. With F of eval/element_functions.h:
//
//     y    = F(x)              y'_k    = slope(x) x'_k
//     xbar = pull(x, ybar)     xbar'_k = slope(x) ybar'_k + curvature(x) ybar x'_k
//
// Branches go by the value alone, so a derivative at a kink is the one of the branch that the value selects. Slope and
// curvature are evaluated once an element, not once a direction. Of a piecewise linear F, slope 0 or 1, the tangents are
// selected by pull instead, so that nothing is multiplied by zero.

namespace yafad {

template <class F>
inline constexpr bool IS_SMOOTH =
    std::is_same_v<std::decay_t<decltype(VEMKN::element_kernels<F>())>, VEMKN::SmoothKernels>;

// n elements of y = F(x) from element `at` on, given t: the value into y, and tangent k to wherever put(k, loop) has
// loop(to) write it. y may be where the value of x lies.
template <class F, class T, class Put>
void apply_block(
    const fad1<T>& x, const double* t, std::size_t at, std::size_t n, double* y, const Put& put)
{
    const auto& kernels = VEMKN::element_kernels<F>();
    const double* const value = elements(x.value) + at;
    VEMKN::Block slope;
    if constexpr (IS_SMOOTH<F>) kernels.value_slope(value, t, y, slope.data, n);
    for (std::size_t k = 0; k < x.directions(); ++k) {
        const double* const dx = elements(x.derivatives[k]) + at;
        put(k, [&](double* to) {
            if constexpr (IS_SMOOTH<F>) {
                VEMKN::kernels().multiply(slope.data, dx, to, n);
            } else {
                kernels.pull(value, t, dx, to, n);
            }
        });
    }
    if constexpr (!IS_SMOOTH<F>) kernels.value(value, t, y, n);
}

// y = F(x); y may be x, and then no sweep follows and nothing is kept. Else kept = t of the value.
template <class F, class Store>
void apply(const CarrierMatrix<Store>& x, CarrierMatrix<Store>& y, DoubleMatrix<Store>& kept)
{
    const bool keep = F::HAS_INNER && &x != &y;
    take_shape(x, y);
    if (keep) take_shape(x.value, kept);
    VEMKN::Block room;
    VEMKN::for_each_block(x.size(), [&](std::size_t at, std::size_t n) {
        double* const t_room = keep ? kept.data() + at : room.data;
        const double* const t = VEMKN::inner_of<F>(elements(x.value) + at, t_room, n);
        apply_block<F>(x, t, at, n, y.value.data() + at, [&](std::size_t k, const auto& loop) {
            loop(y.derivatives[k].data() + at);
        });
    });
}

// v = F(x); v has the number of elements and of directions of x already.
template <class F, class T, class Array>
void apply_to(const fad1<T>& x, fad1<Array>& v)
{
    VEMKN::Block room;
    VEMKN::for_each_block(x.size(), [&](std::size_t at, std::size_t n) {
        const double* const t = VEMKN::inner_of<F>(elements(x.value) + at, room.data, n);
        apply_block<F>(x, t, at, n, elements(v.value) + at, [&](std::size_t k, const auto& loop) {
            loop(elements(v.derivatives[k]) + at);
        });
    });
}

// s = sum of F over the elements of x, value and tangents each from the first element to the last.
template <class F, class T>
void sum_of(const fad1<T>& x, FO::Dynamic::Active<1>& s)
{
    VEMKN::Block room, terms, tangents;
    s.set_constant(VEMKN::empty_sum(x.size()));
    s.derivatives = VEMKN::empty_sum(x.size());
    VEMKN::for_each_block(x.size(), [&](std::size_t at, std::size_t n) {
        const double* const t = VEMKN::inner_of<F>(elements(x.value) + at, room.data, n);
        apply_block<F>(x, t, at, n, terms.data, [&](std::size_t k, const auto& loop) {
            loop(tangents.data);
            VEMKN::add_up(tangents, n, s.derivatives[k]);
        });
        VEMKN::add_up(terms, n, s.value);
    });
}

// Sum of the elements, from the first to the last.
template <class Array>
FO::Dynamic::Active<1> sum(const fad1<Array>& v)
{
    FO::Dynamic::Active<1> s(0.0);
    sum_of<VEMKN::Id>(v, s);
    return s;
}

// n elements of the adjoint of y = F(x) from element `at` on, given t and ybar: the value of the adjoint of y, and
// dybar(k), its tangent k. xbar may hold them.
template <class F, class T, class Tangent>
void adj_apply_block(const fad1<T>& x,
                     const double* t,
                     const double* ybar,
                     const Tangent& dybar,
                     fad1<T>& xbar,
                     std::size_t at,
                     std::size_t n)
{
    const auto& kernels = VEMKN::element_kernels<F>();
    const double* const value = elements(x.value) + at;
    double* const xbar_value = elements(xbar.value) + at;
    VEMKN::Block slope, bend;
    if constexpr (IS_SMOOTH<F>) {
        kernels.pull_slope_bend(value, t, ybar, xbar_value, slope.data, bend.data, n);
    } else {
        kernels.pull(value, t, ybar, xbar_value, n);
    }
    for (std::size_t k = 0; k < x.directions(); ++k) {
        double* const to = elements(xbar.derivatives[k]) + at;
        if constexpr (IS_SMOOTH<F>) {
            const double* const dx = elements(x.derivatives[k]) + at;
            kernels.adj_tangent(value, slope.data, dybar(k), bend.data, dx, to, n);
        } else {
            kernels.pull(value, t, dybar(k), to, n);
        }
    }
}

// xbar from ybar and what the forward pass kept; xbar may be ybar.
template <class F, class Store>
void adj_apply(const CarrierMatrix<Store>& x,
               const DoubleMatrix<Store>& kept,
               const CarrierMatrix<Store>& ybar,
               CarrierMatrix<Store>& xbar)
{
    take_shape(x, xbar);
    const double* const t = VEMKN::kept_of<F>(x.value, kept);
    VEMKN::for_each_block(x.size(), [&](std::size_t at, std::size_t n) {
        const auto dybar = [&](std::size_t k) { return ybar.derivatives[k].data() + at; };
        adj_apply_block<F>(x, t + at, ybar.value.data() + at, dybar, xbar, at, n);
    });
}

// xbar from an adjoint for each element, with nothing kept.
template <class F, class T, class Array>
void adj_apply_each(const fad1<T>& x, const fad1<Array>& ybar, fad1<T>& xbar)
{
    take_shape(x, xbar);
    VEMKN::Block room;
    VEMKN::for_each_block(x.size(), [&](std::size_t at, std::size_t n) {
        const double* const t = VEMKN::inner_of<F>(elements(x.value) + at, room.data, n);
        const auto dybar = [&](std::size_t k) { return elements(ybar.derivatives[k]) + at; };
        adj_apply_block<F>(x, t, elements(ybar.value) + at, dybar, xbar, at, n);
    });
}

// xbar from one adjoint for all of them: that of a sum.
template <class F, class T>
void adj_apply_same(const fad1<T>& x, const FO::Dynamic::Active<1>& ybar, fad1<T>& xbar)
{
    take_shape(x, xbar);
    const std::size_t block = std::min(x.size(), VEMKN::BLOCK);
    VEMKN::Block room, same, same_tangent;
    std::fill_n(same.data, block, ybar.value);
    const auto dybar = [&](std::size_t k) {
        std::fill_n(same_tangent.data, block, ybar.derivatives[k]);
        return same_tangent.data;
    };
    VEMKN::for_each_block(x.size(), [&](std::size_t at, std::size_t n) {
        const double* const t = VEMKN::inner_of<F>(elements(x.value) + at, room.data, n);
        adj_apply_block<F>(x, t, same.data, dybar, xbar, at, n);
    });
}

}  // namespace yafad
