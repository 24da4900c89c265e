#pragma once

#include <type_traits>
#include <valarray>

#include "kernels/kernels.h"
#include "kernels/lane.h"
#include "model/matrix.h"

// The norms, over any matrix type: an element norm gives one value an element, a summing norm their sum. The
// primitives that a vector type provides (apply, sum, asVector) are below for doubles, in fad for carriers.

namespace VEMKN {

template <class F>
std::valarray<double> apply(const std::valarray<double>& x)
{
    std::valarray<double> y(x.size());
    element_kernels<F>().value(std::begin(x), std::begin(y), x.size());
    return y;
}

// From the first element to the last; 0.0 for no elements.
inline double sum(const std::valarray<double>& v)
{
    if (v.size() == 0) return 0.0;
    double s = v[0];
    for (std::size_t i = 1; i < v.size(); ++i) s += v[i];
    return s;
}

// The density f of FatDensity, element by element.
inline std::valarray<double> fat_dnorm(const std::valarray<double>& x, double sigma)
{
    std::valarray<double> f(x.size());
    for (std::size_t i = 0; i < x.size(); ++i) f[i] = FatDensity::value<ScalarLane>(x[i], sigma);
    return f;
}

// The vector and scalar types that go with a matrix type.
template <class Matrix>
using VectorOf = std::decay_t<decltype(asVector(std::declval<const Matrix&>()))>;
template <class Matrix>
using ScalarOf = decltype(sum(std::declval<const VectorOf<Matrix>&>()));

// v = R
template <class Matrix>
VectorOf<Matrix> normfun(const Matrix& R)
{
    return asVector(R);
}

// s = sum of R, signed: neither squares nor absolute values
template <class Matrix>
ScalarOf<Matrix> normfun_sum(const Matrix& R)
{
    return sum(asVector(R));
}

// v = -log f(x) + BIAS
template <class Vector>
Vector log_dnorm_vec(const Vector& x)
{
    return apply<LogDnorm>(x);
}

template <class Matrix>
VectorOf<Matrix> log_dnorm(const Matrix& R)
{
    return log_dnorm_vec(asVector(R));
}

// s = sum of log_dnorm_vec
template <class Vector>
auto sum_log_dnorm_vec(const Vector& x)
{
    return sum(log_dnorm_vec(x));
}

template <class Matrix>
ScalarOf<Matrix> sum_log_dnorm(const Matrix& R)
{
    return sum_log_dnorm_vec(asVector(R));
}

}  // namespace VEMKN
