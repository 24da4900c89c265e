#pragma once

#include <type_traits>
#include <valarray>

#include "eval/element_loops.h"
#include "kernels/lane.h"
#include "model/matrix.h"

// The norms, over any matrix type: an element norm gives one value an element, a summing norm their sum, from the first
// element to the last. The primitives that a container type provides (apply_to, sum_of) are in eval/element_loops.h for
// doubles, in fad/activations.h for carriers.

namespace VEMKN {

// The density f of FatDensity, element by element.
inline std::valarray<double> fat_dnorm(const std::valarray<double>& x, double sigma)
{
    std::valarray<double> f(x.size());
    for (std::size_t i = 0; i < x.size(); ++i) f[i] = FatDensity::value<ScalarLane>(x[i], sigma);
    return f;
}

// The vector and scalar types that go with doubles, a vector with as many elements as x; those that go with carriers are
// told in fad/linear.h.
template <class Array>
Array vector_like(const Array& x)
{
    return Array(x.size());
}

template <class Store>
Store vector_like(const DoubleMatrix<Store>& x)
{
    return Store(x.size());
}

template <class Array>
double scalar_like(const Array&)
{
    return 0.0;
}

template <class T>
using VectorOf = decltype(vector_like(std::declval<const T&>()));
template <class T>
using ScalarOf = decltype(scalar_like(std::declval<const T&>()));

// v = R; v has the number of elements of R already, here and below.
template <class Matrix>
void normfun(const Matrix& R, VectorOf<Matrix>& v)
{
    apply_to<Id>(R, v);
}

// s = sum of R, signed: neither squares nor absolute values
template <class Matrix>
void normfun_sum(const Matrix& R, ScalarOf<Matrix>& s)
{
    sum_of<Id>(R, s);
}

// v = -log f(R) + BIAS
template <class Matrix>
void log_dnorm(const Matrix& R, VectorOf<Matrix>& v)
{
    apply_to<LogDnorm>(R, v);
}

// s = sum of log_dnorm
template <class Matrix>
void sum_log_dnorm(const Matrix& R, ScalarOf<Matrix>& s)
{
    sum_of<LogDnorm>(R, s);
}

// The same four, returning the result; of the likelihood for vectors too.

template <class Matrix>
VectorOf<Matrix> normfun(const Matrix& R)
{
    VectorOf<Matrix> v = vector_like(R);
    normfun(R, v);
    return v;
}

template <class Matrix>
ScalarOf<Matrix> normfun_sum(const Matrix& R)
{
    ScalarOf<Matrix> s = scalar_like(R);
    normfun_sum(R, s);
    return s;
}

template <class Vector>
Vector log_dnorm_vec(const Vector& x)
{
    Vector v = vector_like(x);
    apply_to<LogDnorm>(x, v);
    return v;
}

template <class Matrix>
VectorOf<Matrix> log_dnorm(const Matrix& R)
{
    VectorOf<Matrix> v = vector_like(R);
    log_dnorm(R, v);
    return v;
}

template <class Vector>
ScalarOf<Vector> sum_log_dnorm_vec(const Vector& x)
{
    ScalarOf<Vector> s = scalar_like(x);
    sum_of<LogDnorm>(x, s);
    return s;
}

template <class Matrix>
ScalarOf<Matrix> sum_log_dnorm(const Matrix& R)
{
    return sum_log_dnorm_vec(R);
}

}  // namespace VEMKN
