#pragma once

#include "eval/block_row_loops.h"
#include "fad/active.h"
#include "fad/bundle.h"
#include "kernels/scalar_lane.h"

// Element functions over bundles, the counterpart of eval/element_loops.h. With F of kernels/element_functions.h:
//
//     y    = F(x)              y'_k    = tangent of y along x'_k
//     xbar = vjp(x, ybar)      xbar'_k = tangent of xbar along x'_k and ybar'_k
//
// Branches go by the value alone, so a derivative at a kink is the one of the branch that the value selects. Terms that
// tangents share are evaluated once an element, not once a tangent, and not at all without tangents: they may overflow where
// values do not. Of a piecewise linear F, slope 0 or 1, the derivatives are
// selected by vjp instead, so that nothing is multiplied by zero.

namespace yafad {

using VEMKN::Strip;
using VEMKN::StripOfEach;

// A strip of y = F(x): the value to y, derivatives to dy, which lie as those of x do. y and dy may be where those of x lie.
template <class F>
void apply_strip(const Bundle& x, const StripOfEach& s, const double* saved, double* y, double* dy)
{
    const auto& kernels = VEMKN::element_kernels<F>();
    const double* const value = x.value.data() + s.at;
    const double* const dx = x.derivatives.data() + s.each_at;
    if (s.shape.n == 0) {
        kernels.value(value, saved, y, s.n);
    } else if constexpr (F::IS_SMOOTH) {
        // Tangents need x, which y may be.
        Strip term, room;
        double* const to = y == value ? room.data : y;
        kernels.value_term(value, saved, to, term.data, s.n);
        kernels.tangent(value, term.data, dx, dy, s.shape);
        if (y == value) std::copy_n(room.data, s.n, y);
    } else {
        kernels.vjp_each(value, saved, dx, dy, s.shape);
        kernels.value(value, saved, y, s.n);
    }
}

// y = F(x); y may be x. What F saves of the value goes to all_saved, unless that is null: then each strip's is dropped.
template <class F>
void apply_with(const Bundle& x, Bundle& y, double* all_saved)
{
    take_shape(x, y);
    Strip room;
    for_each_strip(x.derivatives, [&](const StripOfEach& s) {
        double* const to = all_saved != nullptr ? all_saved + s.at : room.data;
        const double* const saved = VEMKN::saved_of<F>(x.value.data() + s.at, to, s.n);
        apply_strip<F>(x, s, saved, y.value.data() + s.at, y.derivatives.data() + s.each_at);
    });
}

// y = F(x), and into saved what the sweep needs. y may be x; then no sweep follows, and nothing is saved.
template <class F>
void apply(const Bundle& x, Bundle& y, WorkMatrix& saved)
{
    const bool save = F::SAVES && &x != &y;
    if (save) take_shape(x.value, saved);
    apply_with<F>(x, y, save ? saved.data() : nullptr);
}

// y = F(x), where no sweep follows.
template <class F>
void apply_to(const Bundle& x, Bundle& y)
{
    apply_with<F>(x, y, nullptr);
}

// s_k += the derivatives of the terms of a strip: tangents, or x'_k as vjp lets it through.
template <class F>
void add_derivatives(const Bundle& x, const StripOfEach& strip, const double* term, double* s)
{
    const VEMKN::SideBySide& shape = strip.shape;
    if (shape.n == 0) return;
    const double* const value = x.value.data() + strip.at;
    const auto add = [&](std::size_t element, const double* dx, std::size_t step) {
        for (std::size_t k = 0; k < shape.n; ++k) {
            const double at = value[element];
            if constexpr (F::IS_SMOOTH) {
                s[k] += F::template tangent<VEMKN::ScalarLane>(at, term[element], dx[k * step]);
            } else {
                s[k] += F::template vjp<VEMKN::ScalarLane>(at, at, dx[k * step]);
            }
        }
    };
    for (std::size_t r = 0; r < shape.rows; ++r) {
        const double* const dx = x.derivatives.data() + strip.each_at + r * shape.pitch;
        if (shape.step == 1) {
            add(r, dx, 1);  // neighbours, which the compiler adds several at a time
            continue;
        }
        for (std::size_t c = 0; c < shape.cols; ++c) {
            add(r * shape.cols + c, dx + c, shape.step);
        }
    }
}

// s = sum of F over the elements of x, value and derivatives each from the first element to the last.
template <class F, ScalarCarrier S>
void sum_of(const Bundle& x, S& s)
{
    Strip room, terms, term;
    set_constant(s, VEMKN::empty_sum(x.size()));
    s.derivatives = VEMKN::empty_sum(x.size());
    for_each_strip(x.derivatives, [&](const StripOfEach& strip) {
        const double* const value = x.value.data() + strip.at;
        const double* const saved = VEMKN::saved_of<F>(value, room.data, strip.n);
        const auto& kernels = VEMKN::element_kernels<F>();
        if (F::IS_SMOOTH && strip.shape.n != 0) {
            kernels.value_term(value, saved, terms.data, term.data, strip.n);
        } else {
            kernels.value(value, saved, terms.data, strip.n);
        }
        VEMKN::add_up(terms, strip.n, s.value);
        add_derivatives<F>(x, strip, term.data, std::begin(s.derivatives));
    });
}

// A strip of the adjoint of y = F(x), from ybar and its derivatives, which lie as those of x do. xbar may hold them.
template <class F>
void adj_apply_strip(const Bundle& x,
                     const StripOfEach& s,
                     const double* saved,
                     const double* ybar,
                     const double* dybar,
                     Bundle& xbar)
{
    const auto& kernels = VEMKN::element_kernels<F>();
    const double* const value = x.value.data() + s.at;
    double* const to = xbar.value.data() + s.at;
    double* const dto = xbar.derivatives.data() + s.each_at;
    if (s.shape.n == 0) {
        kernels.vjp(value, saved, ybar, to, s.n);
    } else if constexpr (F::IS_SMOOTH) {
        Strip term, ybar_term;
        const double* const dx = x.derivatives.data() + s.each_at;
        kernels.vjp_terms(value, saved, ybar, to, term.data, ybar_term.data, s.n);
        kernels.vjp_tangent(value, term.data, ybar_term.data, dybar, dx, dto, s.shape);
    } else {
        kernels.vjp_each(value, saved, dybar, dto, s.shape);
        kernels.vjp(value, saved, ybar, to, s.n);
    }
}

// xbar from ybar and what the forward pass saved; xbar may be ybar.
template <class F>
void adj_apply(const Bundle& x, const WorkMatrix& saved, const Bundle& ybar, Bundle& xbar)
{
    take_shape(x, xbar);
    const double* const of_all = VEMKN::saved_or_x<F>(x.value, saved);
    for_each_strip(x.derivatives, [&](const StripOfEach& s) {
        const double* const dybar = ybar.derivatives.data() + s.each_at;
        adj_apply_strip<F>(x, s, of_all + s.at, ybar.value.data() + s.at, dybar, xbar);
    });
}

// xbar from an adjoint for each element, with nothing saved; xbar may be ybar.
template <class F>
void adj_apply_each(const Bundle& x, const Bundle& ybar, Bundle& xbar)
{
    take_shape(x, xbar);
    Strip room;
    for_each_strip(x.derivatives, [&](const StripOfEach& s) {
        const double* const saved = VEMKN::saved_of<F>(x.value.data() + s.at, room.data, s.n);
        const double* const dybar = ybar.derivatives.data() + s.each_at;
        adj_apply_strip<F>(x, s, saved, ybar.value.data() + s.at, dybar, xbar);
    });
}

// xbar from one adjoint for all of them: that of a sum.
template <class F, ScalarCarrier S>
void adj_apply_same(const Bundle& x, const S& ybar, Bundle& xbar)
{
    take_shape(x, xbar);
    xbar.value.store() = ybar.value;
    for (std::size_t r = 0; r < x.rows(); ++r) {
        for (std::size_t k = 0; k < x.tangents(); ++k) {
            std::fill_n(xbar.derivatives.at(k, r), x.cols(), ybar.derivatives[k]);
        }
    }
    adj_apply_each<F>(x, xbar, xbar);
}

}  // namespace yafad
