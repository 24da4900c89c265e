#pragma once

#include "adjoint/activations.h"
#include "fad/fad1.h"

// Element functions over carriers, for the kernels of eval and adjoint. With F of eval/element_functions.h:
//
//     y    = F(x)              y'_k    = slope(x) x'_k
//     xbar = pull(x, ybar)     xbar'_k = slope(x) ybar'_k + curvature(x) ybar x'_k
//
// Branches go by the value alone, so a derivative at a kink is the one of the branch that the value selects. Slope and
// curvature are evaluated once an element, not once a direction.

namespace yafad {

// y may be x.
template <class F, class T>
void apply_to_carrier(const fad1<T>& x, fad1<T>& y) {
    take_shape(x, y);
    const std::size_t n = x.size();
    const double* const at = elements(x.value);
    if constexpr (F::PIECEWISE_LINEAR) {
        for (std::size_t k = 0; k < x.directions(); ++k) {
            const double* const from = elements(x.derivatives[k]);
            double* const to = elements(y.derivatives[k]);
            for (std::size_t i = 0; i < n; ++i) to[i] = F::pull(at[i], from[i]);
        }
    } else {
        std::valarray<double> slope(n);
        for (std::size_t i = 0; i < n; ++i) slope[i] = F::slope(at[i]);
        for (std::size_t k = 0; k < x.directions(); ++k) {
            const double* const from = elements(x.derivatives[k]);
            double* const to = elements(y.derivatives[k]);
            for (std::size_t i = 0; i < n; ++i) to[i] = slope[i] * from[i];
        }
    }
    double* const to = elements(y.value);
    for (std::size_t i = 0; i < n; ++i) to[i] = F::value(at[i]);
}

// xbar may be ybar.
template <class F, class T>
void adj_apply_to_carrier(const fad1<T>& x, const fad1<T>& ybar, fad1<T>& xbar) {
    take_shape(x, xbar);
    const std::size_t n = x.size();
    const double* const at = elements(x.value);
    const double* const adjoint = elements(ybar.value);
    if constexpr (F::PIECEWISE_LINEAR) {
        for (std::size_t k = 0; k < x.directions(); ++k) {
            const double* const from = elements(ybar.derivatives[k]);
            double* const to = elements(xbar.derivatives[k]);
            for (std::size_t i = 0; i < n; ++i) to[i] = F::pull(at[i], from[i]);
        }
    } else {
        std::valarray<double> slope(n), bend(n);
        for (std::size_t i = 0; i < n; ++i) {
            slope[i] = F::slope(at[i]);
            bend[i] = F::curvature(at[i]) * adjoint[i];
        }
        for (std::size_t k = 0; k < x.directions(); ++k) {
            const double* const dx = elements(x.derivatives[k]);
            const double* const dybar = elements(ybar.derivatives[k]);
            double* const to = elements(xbar.derivatives[k]);
            for (std::size_t i = 0; i < n; ++i) to[i] = slope[i] * dybar[i] + bend[i] * dx[i];
        }
    }
    double* const to = elements(xbar.value);
    for (std::size_t i = 0; i < n; ++i) to[i] = F::pull(at[i], adjoint[i]);
}

template <class F>
void apply(const MatrixCarrier& x, MatrixCarrier& y) {
    apply_to_carrier<F>(x, y);
}

template <class F>
VectorCarrier apply(const VectorCarrier& x) {
    VectorCarrier y;
    apply_to_carrier<F>(x, y);
    return y;
}

template <class F, class T>
void adj_apply(const fad1<T>& x, const fad1<T>& ybar, fad1<T>& xbar) {
    adj_apply_to_carrier<F>(x, ybar, xbar);
}

}  // namespace yafad
