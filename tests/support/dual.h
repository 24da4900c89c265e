#pragma once

#include "support/plain_network.h"

// A complex number with its derivative along one tangent. Where a complex step gives one derivative of the plain
// loops without a formula, this carries a second one through them, by the rules of school: sums, products, quotients,
// and the three functions that occur.

namespace plain {

struct Dual {
    Complex value, slope;

    Dual() = default;

    Dual(const Complex& v, const Complex& s) : value(v), slope(s) {}

    explicit Dual(Real constant) : value(constant) {}

    Dual& operator+=(const Dual& b)
    {
        value += b.value;
        slope += b.slope;
        return *this;
    }

    Dual& operator-=(const Dual& b)
    {
        value -= b.value;
        slope -= b.slope;
        return *this;
    }

    friend Dual operator+(Dual a, const Dual& b) { return a += b; }

    friend Dual operator*(const Dual& a, const Dual& b)
    {
        return {a.value * b.value, a.slope * b.value + a.value * b.slope};
    }

    friend Dual exp(const Dual& a)
    {
        const Complex e = std::exp(a.value);
        return {e, e * a.slope};
    }

    friend Dual log(const Dual& a) { return {std::log(a.value), a.slope / a.value}; }

    friend Dual atan(const Dual& a)
    {
        return {std::atan(a.value), a.slope / (Complex(1) + a.value * a.value)};
    }
};

inline Real real_part(const Dual& x)
{
    return x.value.real();
}

// The Hessian of the objective times a tangent.
inline Reals hessian_product(const Network& network,
                             const Numbers& w,
                             const Numbers& x,
                             const Numbers& y,
                             std::size_t nrows,
                             std::size_t ncols,
                             const Reals& v)
{
    std::vector<Dual> at;
    for (std::size_t k = 0; k < w.size(); ++k) at.emplace_back(Complex(w[k]), Complex(v[k]));
    const Reals mean = network.mean(nrows);
    Reals product;
    for (Dual& parameter : at) {
        const Dual before = parameter;
        parameter.value += Complex(0, STEP);
        product.push_back(network.weighted(at, x, y, nrows, ncols, mean).slope.imag() / STEP);
        parameter = before;
    }
    return product;
}

}  // namespace plain
