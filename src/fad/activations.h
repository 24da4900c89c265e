#pragma once

#include "adjoint/activations.h"
#include "fad/fad1.h"

// Element functions over carriers, for the kernels of eval and adjoint. With F of eval/element_functions.h:
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

// y may be x.
template <class F, class T>
void apply_to_carrier(const fad1<T>& x, fad1<T>& y)
{
    const auto& kernels = VEMKN::element_kernels<F>();
    take_shape(x, y);
    const std::size_t n = x.size();
    if constexpr (IS_SMOOTH<F>) {
        std::valarray<double> slope(n);
        kernels.value_slope(elements(x.value), elements(y.value), std::begin(slope), n);
        for (std::size_t k = 0; k < x.directions(); ++k) {
            VEMKN::kernels().multiply(
                std::begin(slope), elements(x.derivatives[k]), elements(y.derivatives[k]), n);
        }
    } else {
        for (std::size_t k = 0; k < x.directions(); ++k) {
            kernels.pull(
                elements(x.value), elements(x.derivatives[k]), elements(y.derivatives[k]), n);
        }
        kernels.value(elements(x.value), elements(y.value), n);
    }
}

// xbar may be ybar.
template <class F, class T>
void adj_apply_to_carrier(const fad1<T>& x, const fad1<T>& ybar, fad1<T>& xbar)
{
    const auto& kernels = VEMKN::element_kernels<F>();
    take_shape(x, xbar);
    const std::size_t n = x.size();
    if constexpr (IS_SMOOTH<F>) {
        std::valarray<double> slope(n), bend(n);
        kernels.pull_slope_bend(elements(x.value),
                                elements(ybar.value),
                                elements(xbar.value),
                                std::begin(slope),
                                std::begin(bend),
                                n);
        for (std::size_t k = 0; k < x.directions(); ++k) {
            kernels.adj_tangent(elements(x.value),
                                std::begin(slope),
                                elements(ybar.derivatives[k]),
                                std::begin(bend),
                                elements(x.derivatives[k]),
                                elements(xbar.derivatives[k]),
                                n);
        }
    } else {
        for (std::size_t k = 0; k < x.directions(); ++k) {
            kernels.pull(
                elements(x.value), elements(ybar.derivatives[k]), elements(xbar.derivatives[k]), n);
        }
        kernels.pull(elements(x.value), elements(ybar.value), elements(xbar.value), n);
    }
}

template <class F>
void apply(const MatrixCarrier& x, MatrixCarrier& y)
{
    apply_to_carrier<F>(x, y);
}

template <class F>
VectorCarrier apply(const VectorCarrier& x)
{
    VectorCarrier y;
    apply_to_carrier<F>(x, y);
    return y;
}

template <class F, class T>
void adj_apply(const fad1<T>& x, const fad1<T>& ybar, fad1<T>& xbar)
{
    adj_apply_to_carrier<F>(x, ybar, xbar);
}

}  // namespace yafad
