#pragma once

#include "fad/elementary/expressions.h"
#include "kernels/element_functions.h"

// The density of the likelihood and its adjoint in carrier arithmetic, one elementary operation after the other. The
// likelihood kernels evaluate the same functions element by element in one pass (LogDnorm in kernels/element_functions.h);
// these forms are what they are checked against.

namespace yafad {

// Where |x| < 6 sigma, by the value alone.
inline std::valarray<bool> in_core(const VectorCarrier& x, double sigma)
{
    const VectorCarrier magnitude = abs(x);
    std::valarray<bool> mask(x.size());
    for (std::size_t i = 0; i < x.size(); ++i)
        mask[i] = std::isless(magnitude.value[i], 6.0 * sigma);
    return mask;
}

// v times a double.
inline VectorCarrier scaled(VectorCarrier v, double factor)
{
    each_part([&](std::valarray<double>& part) { part *= factor; }, v);
    return v;
}

// PI*(x*x + TAIL_SCALE_SQ)
inline VectorCarrier tail_denominator(const VectorCarrier& x)
{
    using VEMKN::FatDensity;
    return scaled(evaluated(x * x + FatDensity::TAIL_SCALE_SQ), FatDensity::PI);
}

// The Cauchy density of scale gamma.
inline VectorCarrier dcauchy(const VectorCarrier& x, double gamma)
{
    return scaled(invert(tail_denominator(x)), gamma);
}

// The Gaussian density of standard deviation sigma.
inline VectorCarrier dnorm(const VectorCarrier& x, double sigma)
{
    const double scale = 1.0 / std::sqrt(VEMKN::FatDensity::TWO_PI * sigma * sigma);
    return scaled(evaluated(exp((x * x) / (-2.0 * sigma * sigma))), scale);
}

// Gaussian core, Cauchy tail.
inline VectorCarrier fat_dnorm(const VectorCarrier& x, double sigma)
{
    const std::valarray<bool> core = in_core(x, sigma);
    VectorCarrier f = x;
    f.scatter(core, dnorm(x[core], sigma));
    f.scatter(!core, dcauchy(x[!core], VEMKN::FatDensity::TAIL_SCALE));
    return f;
}

// xbar = w * d/dx of the Cauchy density of scale gamma.
inline void adj_dcauchy(const VectorCarrier& x,
                        double gamma,
                        const VectorCarrier& w,
                        VectorCarrier& xbar)
{
    const VectorCarrier d = tail_denominator(x);
    const VectorCarrier weighted = scaled(scaled(x, 2.0) * w, -VEMKN::FatDensity::PI * gamma);
    xbar = weighted * invert(d * d);
}

// xbar = w * f'(x) for f = fat_dnorm.
inline void fat_dnorm_adjoint(const VectorCarrier& x,
                              const VectorCarrier& w,
                              VectorCarrier& xbar,
                              double sigma)
{
    const std::valarray<bool> core = in_core(x, sigma);
    const VectorCarrier x_core = x[core], w_core = w[core];
    VectorCarrier tail;
    adj_dcauchy(x[!core], VEMKN::FatDensity::TAIL_SCALE, w[!core], tail);
    const VectorCarrier slope = scaled((x_core * w_core) / (-2.0 * sigma * sigma), 2.0);

    VectorCarrier result = x;
    result.scatter(core, slope * dnorm(x_core, sigma));
    result.scatter(!core, tail);
    xbar = std::move(result);
}

}  // namespace yafad
