#pragma once

#include "adjoint/activations.h"
#include "adjoint/block_row_loops.h"
#include "fad/active.h"
#include "fad/bundle.h"
#include "kernels/lane.h"

// Element functions over carriers, the counterpart of eval/element_loops.h. With F of eval/element_functions.h:
//
//     y    = F(x)              y'_k    = slope(x) x'_k
//     xbar = pull(x, ybar)     xbar'_k = slope(x) ybar'_k + curvature(x) ybar x'_k
//
// Branches go by the value alone, so a derivative at a kink is the one of the branch that the value selects. Slope and
// curvature are evaluated once an element, not once a direction. Of a piecewise linear F, slope 0 or 1, the tangents are
// selected by pull instead, so that nothing is multiplied by zero.

namespace yafad {

using VEMKN::BlockOfEach;

template <class F>
inline constexpr bool IS_SMOOTH =
    std::is_same_v<std::decay_t<decltype(VEMKN::element_kernels<F>())>, VEMKN::SmoothKernels>;

// A block of y = F(x), given t: the value to y, derivatives to dy, which lie as those of x do. y and dy may be where those
// of x lie.
template <class F>
void apply_block(const Bundle& x, const BlockOfEach& b, const double* t, double* y, double* dy)
{
    const auto& kernels = VEMKN::element_kernels<F>();
    const double* const value = x.value.data() + b.at;
    const double* const dx = x.derivatives.data() + b.each_at;
    if constexpr (IS_SMOOTH<F>) {
        VEMKN::Block slope;
        kernels.value_slope(value, t, y, slope.data, b.n);
        VEMKN::kernels().multiply_each(slope.data, dx, dy, b.shape);
    } else {
        kernels.pull_each(value, t, dx, dy, b.shape);
        kernels.value(value, t, y, b.n);
    }
}

// y = F(x); y may be x. Room for t of the value of all elements, or null where a block of it at a time will do.
template <class F>
void apply_with(const Bundle& x, Bundle& y, double* all_t)
{
    take_shape(x, y);
    VEMKN::Block room;
    for_each_block(x.derivatives, [&](const BlockOfEach& b) {
        double* const t_room = all_t != nullptr ? all_t + b.at : room.data;
        const double* const t = VEMKN::inner_of<F>(x.value.data() + b.at, t_room, b.n);
        apply_block<F>(x, b, t, y.value.data() + b.at, y.derivatives.data() + b.each_at);
    });
}

// y = F(x); y may be x, and then no sweep follows and nothing is kept. Else kept = t of the value.
template <class F>
void apply(const Bundle& x, Bundle& y, WorkMatrix& kept)
{
    const bool keep = F::HAS_INNER && &x != &y;
    if (keep) take_shape(x.value, kept);
    apply_with<F>(x, y, keep ? kept.data() : nullptr);
}

// The same with nothing to keep.
template <class F>
void apply_to(const Bundle& x, Bundle& y)
{
    apply_with<F>(x, y, nullptr);
}

// s_k += the tangents of the terms of a block: slope(x) x'_k, or x'_k as pull lets it through.
template <class F>
void add_tangents(const Bundle& x, const BlockOfEach& b, const double* slope, double* s)
{
    if (b.shape.n == 0) return;
    const double* const value = x.value.data() + b.at;
    const auto add = [&](std::size_t element, const double* dx, std::size_t step) {
        for (std::size_t k = 0; k < b.shape.n; ++k) {
            if constexpr (IS_SMOOTH<F>) {
                s[k] += slope[element] * dx[k * step];
            } else {
                const double at = value[element];
                s[k] += F::template pull<VEMKN::ScalarLane>(at, at, dx[k * step]);
            }
        }
    };
    for (std::size_t r = 0; r < b.shape.rows; ++r) {
        const double* const dx = x.derivatives.data() + b.each_at + r * b.shape.pitch;
        if (b.shape.step == 1) {
            add(r, dx, 1);  // neighbours, which the compiler adds several at a time
            continue;
        }
        for (std::size_t c = 0; c < b.shape.cols; ++c) {
            add(r * b.shape.cols + c, dx + c, b.shape.step);
        }
    }
}

// s = sum of F over the elements of x, value and tangents each from the first element to the last.
template <class F>
void sum_of(const Bundle& x, FO::Dynamic::Active<1>& s)
{
    VEMKN::Block room, terms, slope;
    s.set_constant(VEMKN::empty_sum(x.size()));
    s.derivatives = VEMKN::empty_sum(x.size());
    for_each_block(x.derivatives, [&](const BlockOfEach& b) {
        const double* const value = x.value.data() + b.at;
        const double* const t = VEMKN::inner_of<F>(value, room.data, b.n);
        const auto& kernels = VEMKN::element_kernels<F>();
        if constexpr (IS_SMOOTH<F>) {
            kernels.value_slope(value, t, terms.data, slope.data, b.n);
        } else {
            kernels.value(value, t, terms.data, b.n);
        }
        VEMKN::add_up(terms, b.n, s.value);
        add_tangents<F>(x, b, slope.data, std::begin(s.derivatives));
    });
}

// A block of the adjoint of y = F(x), given t, ybar and its derivatives, which lie as those of x do. xbar may hold them.
template <class F>
void adj_apply_block(const Bundle& x,
                     const BlockOfEach& b,
                     const double* t,
                     const double* ybar,
                     const double* dybar,
                     Bundle& xbar)
{
    const auto& kernels = VEMKN::element_kernels<F>();
    const double* const value = x.value.data() + b.at;
    double* const to = xbar.value.data() + b.at;
    double* const dto = xbar.derivatives.data() + b.each_at;
    if constexpr (IS_SMOOTH<F>) {
        VEMKN::Block slope, bend;
        const double* const dx = x.derivatives.data() + b.each_at;
        kernels.pull_slope_bend(value, t, ybar, to, slope.data, bend.data, b.n);
        kernels.adj_tangent(value, slope.data, bend.data, dybar, dx, dto, b.shape);
    } else {
        kernels.pull_each(value, t, dybar, dto, b.shape);
        kernels.pull(value, t, ybar, to, b.n);
    }
}

// xbar from ybar and what the forward pass kept; xbar may be ybar.
template <class F>
void adj_apply(const Bundle& x, const WorkMatrix& kept, const Bundle& ybar, Bundle& xbar)
{
    take_shape(x, xbar);
    const double* const t = VEMKN::kept_of<F>(x.value, kept);
    for_each_block(x.derivatives, [&](const BlockOfEach& b) {
        const double* const dybar = ybar.derivatives.data() + b.each_at;
        adj_apply_block<F>(x, b, t + b.at, ybar.value.data() + b.at, dybar, xbar);
    });
}

// xbar from an adjoint for each element, with nothing kept; xbar may be ybar.
template <class F>
void adj_apply_each(const Bundle& x, const Bundle& ybar, Bundle& xbar)
{
    take_shape(x, xbar);
    VEMKN::Block room;
    for_each_block(x.derivatives, [&](const BlockOfEach& b) {
        const double* const t = VEMKN::inner_of<F>(x.value.data() + b.at, room.data, b.n);
        const double* const dybar = ybar.derivatives.data() + b.each_at;
        adj_apply_block<F>(x, b, t, ybar.value.data() + b.at, dybar, xbar);
    });
}

// xbar from one adjoint for all of them: that of a sum.
template <class F>
void adj_apply_same(const Bundle& x, const FO::Dynamic::Active<1>& ybar, Bundle& xbar)
{
    take_shape(x, xbar);
    xbar.value.store() = ybar.value;
    for (std::size_t r = 0; r < x.rows(); ++r) {
        for (std::size_t k = 0; k < x.directions(); ++k) {
            std::fill_n(xbar.derivatives.at(k, r), x.cols(), ybar.derivatives[k]);
        }
    }
    adj_apply_each<F>(x, xbar, xbar);
}

// The same for carriers of separate derivatives.

template <class F>
void apply(const MatrixCarrier& x, MatrixCarrier& y, MatrixTemplate<double>& kept)
{
    Bundle result = bundle(x);
    apply_to<F>(result, result);
    if (F::HAS_INNER) {
        take_shape(x.value, kept);
        VEMKN::element_kernels<F>().inner(x.value.data(), kept.data(), x.size());
    }
    unbundle(result, y);
}

template <class F, class T>
void apply_to(const fad1<T>& x, VectorCarrier& v)
{
    Bundle result = bundle(x);
    apply_to<F>(result, result);
    fad1<T> y;
    unbundle(result, y);
    each_part(
        [](const T& from, std::valarray<double>& to) {
            std::copy_n(elements(from), from.size(), elements(to));
        },
        y,
        v);
}

template <class F, class T>
void sum_of(const fad1<T>& x, FO::Dynamic::Active<1>& s)
{
    sum_of<F>(bundle(x), s);
}

// Sum of the elements, from the first to the last.
inline FO::Dynamic::Active<1> sum(const VectorCarrier& v)
{
    FO::Dynamic::Active<1> s(0.0);
    sum_of<VEMKN::Id>(v, s);
    return s;
}

template <class F>
void adj_apply(const MatrixCarrier& x,
               const MatrixTemplate<double>& kept,
               const MatrixCarrier& ybar,
               MatrixCarrier& xbar)
{
    Bundle result;
    const WorkMatrix t(kept.data(), kept.rows(), kept.cols());
    adj_apply<F>(bundle(x), t, bundle(ybar), result);
    unbundle(result, xbar);
}

template <class F, class T>
void adj_apply_each(const fad1<T>& x, const VectorCarrier& ybar, fad1<T>& xbar)
{
    Bundle b = bundle(x), result;
    if constexpr (std::is_same_v<T, MatrixTemplate<double>>) {
        adj_apply_each<F>(b, bundle(asMatrix(ybar, x.rows(), x.cols())), result);
    } else {
        adj_apply_each<F>(b, bundle(ybar), result);
    }
    unbundle(result, xbar);
}

template <class F, class T>
void adj_apply_same(const fad1<T>& x, const FO::Dynamic::Active<1>& ybar, fad1<T>& xbar)
{
    Bundle result;
    adj_apply_same<F>(bundle(x), ybar, result);
    unbundle(result, xbar);
}

}  // namespace yafad
