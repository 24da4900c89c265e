#pragma once

#include "eval/norms.h"

// Adjoints of the norms, in the order of eval/norms.h: R (or x) is the forward input, vbar or sbar the adjoint of the
// result, Rbar (or xbar) the adjoint of the input, overwritten. Rbar must have the shape of R.

namespace VEMKN {

template <class F>
void adj_apply(const std::valarray<double>& x,
               const std::valarray<double>& ybar,
               std::valarray<double>& xbar)
{
    set_size(xbar, x.size());
    element_kernels<F>().pull(std::begin(x), std::begin(ybar), std::begin(xbar), x.size());
}

// s in each of n elements: the adjoint of sum.
inline std::valarray<double> spread(double s, std::size_t n)
{
    return std::valarray<double>(s, n);
}

inline void assign_store(MatrixTemplate<double>& A, std::valarray<double>&& v)
{
    A.store() = std::move(v);
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

// Rbar = vbar
template <class Matrix>
void adj_normfun(const Matrix&, const VectorOf<Matrix>& vbar, Matrix& Rbar)
{
    assign_store(Rbar, VectorOf<Matrix>(vbar));
}

// Rbar = sbar everywhere
template <class Matrix>
void adj_normfun_sum(const Matrix& R, const ScalarOf<Matrix>& sbar, Matrix& Rbar)
{
    assign_store(Rbar, spread(sbar, R.size()));
}

// xbar = ybar * -f'(x)/f(x)
template <class Vector>
void adj_log_dnorm_vec(const Vector& x, const Vector& ybar, Vector& xbar)
{
    adj_apply<LogDnorm>(x, ybar, xbar);
}

template <class Matrix>
void adj_log_dnorm(const Matrix& R, const VectorOf<Matrix>& vbar, Matrix& Rbar)
{
    VectorOf<Matrix> xbar;
    adj_log_dnorm_vec(asVector(R), vbar, xbar);
    assign_store(Rbar, std::move(xbar));
}

// xbar = sbar * -f'(x)/f(x)
template <class Vector, class Scalar>
void adj_sum_log_dnorm_vec(const Vector& x, const Scalar& sbar, Vector& xbar)
{
    adj_log_dnorm_vec(x, spread(sbar, x.size()), xbar);
}

template <class Matrix>
void adj_sum_log_dnorm(const Matrix& R, const ScalarOf<Matrix>& sbar, Matrix& Rbar)
{
    VectorOf<Matrix> xbar;
    adj_sum_log_dnorm_vec(asVector(R), sbar, xbar);
    assign_store(Rbar, std::move(xbar));
}

}  // namespace VEMKN
