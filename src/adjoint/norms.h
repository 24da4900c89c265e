#pragma once

#include "eval/norms.h"

// Adjoints of the norms, in the order of eval/norms.h: R (or x) is the forward input, vbar or sbar the adjoint of the
// result, Rbar (or xbar) the adjoint of the input, overwritten; it takes the shape of the input; of element norms, of
// as many inputs side by side as vbar has.

namespace VEMKN {

// xbar = w * f'(x) for the density f of FatDensity.
inline void fat_dnorm_adjoint(const std::valarray<double>& x,
                              const std::valarray<double>& w,
                              std::valarray<double>& xbar,
                              double sigma)
{
    set_size(xbar, x.size());
    for (std::size_t i = 0; i < x.size(); ++i) {
        const double f = FatDensity::value<ScalarLane>(x[i], sigma);
        xbar[i] = FatDensity::pull<ScalarLane>(x[i], w[i], f, sigma);
    }
}

// xbar = w * d/dx of the Cauchy density of scale gamma.
inline void adj_dcauchy(const std::valarray<double>& x,
                        double gamma,
                        const std::valarray<double>& w,
                        std::valarray<double>& xbar)
{
    set_size(xbar, x.size());
    for (std::size_t i = 0; i < x.size(); ++i) {
        xbar[i] = FatDensity::pull_cauchy<ScalarLane>(x[i], w[i], gamma);
    }
}

// Rbar = vbar; Rbar may hold vbar, here and below.
template <class Matrix, class Adjoint>
void adj_normfun(const Matrix& R, const VectorOf<Adjoint>& vbar, Adjoint& Rbar)
{
    adj_apply_each<Id>(R, vbar, Rbar);
}

// Rbar = sbar everywhere
template <class Matrix>
void adj_normfun_sum(const Matrix& R, const ScalarOf<Matrix>& sbar, Matrix& Rbar)
{
    adj_apply_same<Id>(R, sbar, Rbar);
}

// xbar = ybar * -f'(x)/f(x)
template <class Vector>
void adj_log_dnorm_vec(const Vector& x, const Vector& ybar, Vector& xbar)
{
    adj_apply_each<LogDnorm>(x, ybar, xbar);
}

template <class Matrix, class Adjoint>
void adj_log_dnorm(const Matrix& R, const VectorOf<Adjoint>& vbar, Adjoint& Rbar)
{
    adj_apply_each<LogDnorm>(R, vbar, Rbar);
}

// xbar = sbar * -f'(x)/f(x)
template <class Vector>
void adj_sum_log_dnorm_vec(const Vector& x, const ScalarOf<Vector>& sbar, Vector& xbar)
{
    adj_apply_same<LogDnorm>(x, sbar, xbar);
}

template <class Matrix>
void adj_sum_log_dnorm(const Matrix& R, const ScalarOf<Matrix>& sbar, Matrix& Rbar)
{
    adj_apply_same<LogDnorm>(R, sbar, Rbar);
}

}  // namespace VEMKN
