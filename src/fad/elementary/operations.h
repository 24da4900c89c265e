#pragma once

#include "fad/elementary/fad1.h"

// Elementary operations on vector carriers, element by element. None of them looks out for a pole or a kink: log and
// invert at 0 give what the floating-point operations give.

namespace yafad {

// f'_k = factor * x'_k for every tangent.
inline void scale_derivatives(const std::valarray<double>& factor,
                              const VectorCarrier& x,
                              VectorCarrier& result)
{
    for (std::size_t k = 0; k < x.tangents(); ++k) {
        result.derivatives[k] = x.derivatives[k] * factor;
    }
}

// log(x), derivative x'_k / x. result may be x.
inline void do_log(VectorCarrier& result, const VectorCarrier& x)
{
    result.set_tangents(x.tangents());
    for (std::size_t k = 0; k < x.tangents(); ++k) {
        result.derivatives[k] = x.derivatives[k] / x.value;
    }
    result.value = std::log(x.value);
}

// exp(x), derivative x'_k exp(x). result may be x.
inline void do_exp(VectorCarrier& result, const VectorCarrier& x)
{
    result.set_tangents(x.tangents());
    const std::valarray<double> e = std::exp(x.value);
    scale_derivatives(e, x, result);
    result.value = e;
}

// 1/x, derivative -(1/x)(1/x) x'_k
inline VectorCarrier invert(const VectorCarrier& x)
{
    VectorCarrier result;
    result.set_tangents(x.tangents());
    result.value = 1.0 / x.value;
    scale_derivatives(-(result.value * result.value), x, result);
    return result;
}

// |x|, derivative -x'_k where the sign bit of x is set (at -0.0 too), else x'_k
inline VectorCarrier abs(const VectorCarrier& x)
{
    VectorCarrier result;
    result.set_tangents(x.tangents());
    std::valarray<double> sign(x.size());
    for (std::size_t i = 0; i < x.size(); ++i) sign[i] = std::signbit(x.value[i]) ? -1.0 : 1.0;
    result.value = std::abs(x.value);
    scale_derivatives(sign, x, result);
    return result;
}

}  // namespace yafad
