#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "kernels/kernels.h"

// How far the element kernels may be off, row by row: what docs/accuracy.md tabulates and bench/ulp.cpp measures against
// MPFR, and what tests/kernels holds every instruction set to against long double. Real is the number type of the truth:
// it has + - * / and unary minus, exp, log, atan, a constructor from double and a conversion to long double.

namespace accuracy {

// Outputs of the kernels of one element function.
enum Quantity { SAVED, VALUE, SLOPE, JVP, VJP, CURVATURE, QUANTITIES };

// What they are at a point, with jvp, vjp and curvature still to be multiplied by dx or ybar.
template <class Real>
using Truth = std::array<Real, QUANTITIES>;

struct Row {
    Quantity quantity;
    const char* what;
    // The error counts in units of the last place of the exact result, or of this number where that is larger in magnitude.
    double floor;
    // What no point exceeds, to first order, by adding up the roundings of the formula (docs/accuracy.md).
    double derived;
    // The largest error of 10^7 points and some more: the worst points are rare, and any other sample may meet a worse one.
    double bound;
};

// Points of one range of arguments, and what is measured there.
template <class Real>
struct Group {
    const char* name;
    const VEMKN::ElementKernels& (*kernels)(const VEMKN::Kernels& of);
    double low, high;
    // Magnitudes spread evenly over the exponents, and both signs where low is negative; else uniform.
    bool logarithmic;
    Truth<Real> (*truth)(double);
    std::vector<Row> rows;
    // For the logarithm alone: the kernels get points as what is saved, 1 as x, so that nothing but the logarithm is in the error.
    bool points_are_saved = false;
};

template <class Real>
Truth<Real> softplus(double a)
{
    using std::exp, std::log;
    const Real one(1.0), e = exp(Real(a)), sum = one + e;
    const Real slope = e / sum;
    return {e, log(sum), slope, slope, slope, slope / sum};
}

template <class Real>
Truth<Real> atan_(double a)
{
    using std::atan;
    const Real one(1.0), x(a), slope = one / (x * x + one);
    return {x, atan(x), slope, slope, slope, -(Real(2.0) * x) * slope * slope};
}

// With the constants as the doubles that they are in the library.
template <class Real>
Truth<Real> log_dnorm(double a)
{
    using std::exp, std::log, std::sqrt;
    using VEMKN::FatDensity, VEMKN::LogDnorm;
    const Real x(a), two(2.0), sigma(LogDnorm::SIGMA), bias(LogDnorm::BIAS);
    if (std::fabs(a) < 6.0 * LogDnorm::SIGMA) {
        const Real variance = sigma * sigma, exponent = x * x / (two * variance);
        const Real norm = sqrt(Real(FatDensity::TWO_PI) * variance), slope = x / variance;
        return {exp(-exponent) / norm,
                exponent + log(norm) + bias,
                slope,
                slope,
                slope,
                Real(1.0) / variance};
    }
    const Real q = Real(1.0) / (x * x + Real(FatDensity::TAIL_SCALE_SQ));
    const Real f = Real(FatDensity::TAIL_SCALE) * q / Real(FatDensity::PI);
    const Real slope = two * x * q;
    return {f, bias - log(f), slope, slope, slope, two * q - slope * slope};
}

// log(1 + e) of an e, with the sum as the double that it is: log of numbers from 1 on.
template <class Real>
Truth<Real> log_of_sum(double e)
{
    using std::log;
    return {Real(e), log(Real(1.0 + e)), Real(0.0), Real(0.0), Real(0.0), Real(0.0)};
}

// The same for numbers below 1, down to the smallest subnormal one, as the likelihood uses it of a density.
template <class Real>
Truth<Real> log_of_density(double f)
{
    using std::log;
    const Real bias(VEMKN::LogDnorm::BIAS);
    return {Real(f), bias - log(Real(f)), Real(0.0), Real(0.0), Real(0.0), Real(0.0)};
}

// exp(x) + 1 is rounded to a double near 1, so the error of softplus below x = 0 is absolute: units of the last place of 1.
// In the likelihood's core the exponent and its rounding decide, and the bias cancels near 0: units of the last place of
// the largest exponent. The density itself carries the rounding of its exponent as a relative error: that many ulps.
template <class Real>
const std::vector<Group<Real>>& groups()
{
    using VEMKN::element_kernels, VEMKN::Atan, VEMKN::LogDnorm, VEMKN::Softplus;
    // clang-format off
    static const std::vector<Group<Real>> all = {
        {"softplus", element_kernels<Softplus>, -40, 40, false, softplus<Real>, {
            {SAVED, "saved: exp(x)", 0, 1.05, 1.05}, {VALUE, "value", 1, 2.5, 1.3}, {SLOPE, "slope", 0, 3.6, 2.5},
            {JVP, "jvp", 0, 4.6, 3.3}, {VJP, "vjp", 0, 4.6, 3.4}, {CURVATURE, "curvature", 0, 6.6, 5.5}}},
        {"softplus", element_kernels<Softplus>, -700, 300, false, softplus<Real>, {
            {SAVED, "saved: exp(x)", 0, 1.05, 1.05}, {VALUE, "value", 1, 2.5, 1.3}, {SLOPE, "slope", 0, 3.6, 2.3},
            {JVP, "jvp", 0, 4.6, 3}, {VJP, "vjp", 0, 4.6, 3.3}, {CURVATURE, "curvature", 0, 6.6, 5}}},
        {"log", element_kernels<Softplus>, 1e-16, 1e130, true, log_of_sum<Real>, {
            {VALUE, "value: log(1 + e) of e", 0, 1, 1}}, true},
        {"log", element_kernels<LogDnorm>, 5e-324, 1, true, log_of_density<Real>, {
            {VALUE, "value: bias - log(f) of f", 0, 1.5, 1.5}}, true},
        {"atan", element_kernels<Atan>, -5, 5, false, atan_<Real>, {
            {VALUE, "value", 0, 1, 1}, {SLOPE, "slope", 0, 2.5, 2.2}, {JVP, "jvp", 0, 2.5, 2.2},
            {VJP, "vjp", 0, 2.5, 2.2}, {CURVATURE, "curvature", 0, 6.5, 5.5}}},
        {"atan", element_kernels<Atan>, -1e100, 1e100, true, atan_<Real>, {
            {VALUE, "value", 0, 1, 1}, {SLOPE, "slope", 0, 2.5, 2.5}, {JVP, "jvp", 0, 2.5, 2.5},
            {VJP, "vjp", 0, 2.5, 2.5}, {CURVATURE, "curvature", 0, 6.5, 5.3}}},
        {"log_dnorm", element_kernels<LogDnorm>, -1, 1, false, log_dnorm<Real>, {
            {SAVED, "saved: density", 0, 19.1, 10.4}, {VALUE, "value", 4.5, 4, 1.5}, {SLOPE, "slope", 0, 1.5, 1.1},
            {JVP, "jvp", 0, 2.5, 2.1}, {VJP, "vjp", 0, 4.5, 3.7}, {CURVATURE, "curvature", 0, 2.5, 1.7}}},
        {"log_dnorm", element_kernels<LogDnorm>, -2, 2, false, log_dnorm<Real>, {
            {SAVED, "saved: density", 0, 59.6, 37}, {VALUE, "value", 18, 3.4, 1.3}, {SLOPE, "slope", 0, 1.5, 1.1},
            {JVP, "jvp", 0, 2.5, 2.1}, {VJP, "vjp", 0, 4.5, 3.8}, {CURVATURE, "curvature", 0, 2.5, 1.7}}},
        {"log_dnorm", element_kernels<LogDnorm>, 2, 1e70, true, log_dnorm<Real>, {
            {SAVED, "saved: density", 0, 4.5, 3.5}, {VALUE, "value", 0, 1.9, 1}, {SLOPE, "slope", 0, 3.5, 3.1},
            {JVP, "jvp", 0, 4.5, 3.5}, {VJP, "vjp", 0, 10.5, 6.3}, {CURVATURE, "curvature", 0, 16.5, 11.5}}},
    };
    // clang-format on
    return all;
}

inline double ulp(long double exact)
{
    const double d = std::fabs(static_cast<double>(exact));
    return std::nextafter(d, std::numeric_limits<double>::infinity()) - d;
}

// The smallest magnitude of a logarithmic range that has both signs.
constexpr double SMALLEST = 1e-30;

// Seeded points of a group, with the truth of each.
template <class Real>
struct Sample {
    Sample(const Group<Real>& a_group, std::size_t n, unsigned seed)
        : group(a_group), x(n), ybar(n), exact(n)
    {
        std::mt19937_64 engine(seed);
        std::uniform_real_distribution<double> unit(0.0, 1.0), sign(-1.0, 1.0);
        const bool signs = group.low < 0.0;
        const double first = std::log(signs ? SMALLEST : group.low);
        for (std::size_t i = 0; i < n; ++i) {
            const double at = unit(engine);
            ybar[i] = sign(engine);
            if (group.logarithmic) {
                x[i] = std::exp(first + at * (std::log(group.high) - first));
                if (signs) x[i] = std::copysign(x[i], sign(engine));
            } else {
                x[i] = group.low + at * (group.high - group.low);
            }
            const Truth<Real> truth = group.truth(x[i]);
            for (int q = 0; q < QUANTITIES; ++q) {
                exact[i][q] = static_cast<long double>(truth[q]);
                if (q == JVP || q == VJP || q == CURVATURE)
                    exact[i][q] *= static_cast<long double>(ybar[i]);
            }
        }
    }

    // Raises worst, one entry a row of the group, to the largest errors of these kernels here.
    void raise(const VEMKN::Kernels& kernels, std::vector<double>& worst) const
    {
        const VEMKN::ElementKernels& k = group.kernels(kernels);
        const std::size_t n = x.size();
        std::array<std::vector<double>, QUANTITIES> y;
        for (std::vector<double>& numbers : y) numbers.resize(n);
        if (group.points_are_saved) {
            k.value(std::vector<double>(n, 1.0).data(), x.data(), y[VALUE].data(), n);
        } else {
            y[SAVED] = x;
            if (k.saved != nullptr) k.saved(x.data(), y[SAVED].data(), n);
            const double* saved = y[SAVED].data();
            // Tangents along 1, and of the adjoint with ybar held.
            const std::vector<double> one(n, 1.0), zero(n, 0.0);
            std::vector<double> term(n), ybar_term(n), again(n);
            const VEMKN::SideBySide flat{1, n, 1, n, n};
            k.value_term(x.data(), saved, y[VALUE].data(), term.data(), n);
            k.tangent(x.data(), term.data(), one.data(), y[SLOPE].data(), flat);
            k.tangent(x.data(), term.data(), ybar.data(), y[JVP].data(), flat);
            k.vjp_terms(
                x.data(), saved, ybar.data(), again.data(), term.data(), ybar_term.data(), n);
            k.vjp_tangent(x.data(),
                          term.data(),
                          ybar_term.data(),
                          zero.data(),
                          one.data(),
                          y[CURVATURE].data(),
                          flat);
            k.value(x.data(), saved, y[VALUE].data(), n);
            k.vjp(x.data(), saved, ybar.data(), y[VJP].data(), n);
        }
        for (std::size_t r = 0; r < worst.size(); ++r) {
            const Row& row = group.rows[r];
            for (std::size_t i = 0; i < n; ++i) {
                const long double truth = exact[i][row.quantity];
                const double off = static_cast<double>(std::fabs(y[row.quantity][i] - truth));
                const double error = off / std::max(ulp(truth), ulp(row.floor));
                // so that NaN gets through
                if (!(error <= worst[r])) worst[r] = error;
            }
        }
    }

    const Group<Real>& group;
    std::vector<double> x, ybar;
    std::vector<std::array<long double, QUANTITIES>> exact;
};

}  // namespace accuracy
