#pragma once

#include <valarray>

#include "eval/element_loops.h"
#include "fad/elementary/element_loops.h"
#include "kernels/scalar_lane.h"

// The norms and their adjoints by their names, over vectors and matrices of doubles and of carriers. An element norm
// returns one value an element, a summing norm their sum, from the first element to the last. An adjoint takes the forward
// input R (or x) and the adjoint vbar or sbar of the result, and overwrites Rbar (or xbar), which takes the shape of the
// input.

namespace VEMKN {

// The density f of FatDensity, element by element.
inline std::valarray<double> fat_dnorm(const std::valarray<double>& x, double sigma)
{
    std::valarray<double> f(x.size());
    for (std::size_t i = 0; i < x.size(); ++i) f[i] = FatDensity::value<ScalarLane>(x[i], sigma);
    return f;
}

// xbar = w * f'(x) for the density f of FatDensity.
inline void fat_dnorm_adjoint(const std::valarray<double>& x,
                              const std::valarray<double>& w,
                              std::valarray<double>& xbar,
                              double sigma)
{
    set_size(xbar, x.size());
    for (std::size_t i = 0; i < x.size(); ++i) {
        const double f = FatDensity::value<ScalarLane>(x[i], sigma);
        xbar[i] = FatDensity::vjp<ScalarLane>(x[i], w[i], f, sigma);
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
        xbar[i] = FatDensity::vjp_cauchy<ScalarLane>(x[i], w[i], gamma);
    }
}

// The norm F of every element of R, and their sum.
template <class F, class Array>
VectorOf<Array> each_normed(const Array& R)
{
    VectorOf<Array> v = vector_like(R);
    apply_to<F>(R, v);
    return v;
}

template <class F, class Array>
ScalarOf<Array> summed(const Array& R)
{
    ScalarOf<Array> s = scalar_like(R);
    sum_of<F>(R, s);
    return s;
}

// v = R
template <class Matrix>
VectorOf<Matrix> normfun(const Matrix& R)
{
    return each_normed<Id>(R);
}

// s = sum of R, signed: neither squares nor absolute values
template <class Matrix>
ScalarOf<Matrix> normfun_sum(const Matrix& R)
{
    return summed<Id>(R);
}

// v = -log f(x) + BIAS
template <class Vector>
Vector log_dnorm_vec(const Vector& x)
{
    return each_normed<LogDnorm>(x);
}

template <class Matrix>
VectorOf<Matrix> log_dnorm(const Matrix& R)
{
    return each_normed<LogDnorm>(R);
}

// s = sum of log_dnorm
template <class Vector>
ScalarOf<Vector> sum_log_dnorm_vec(const Vector& x)
{
    return summed<LogDnorm>(x);
}

template <class Matrix>
ScalarOf<Matrix> sum_log_dnorm(const Matrix& R)
{
    return summed<LogDnorm>(R);
}

// Rbar = vbar; Rbar may hold vbar, here and below.
template <class Matrix>
void adj_normfun(const Matrix& R, const VectorOf<Matrix>& vbar, Matrix& Rbar)
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

template <class Matrix>
void adj_log_dnorm(const Matrix& R, const VectorOf<Matrix>& vbar, Matrix& Rbar)
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
