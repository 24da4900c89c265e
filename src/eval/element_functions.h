#pragma once

#include <cmath>

#include "model/model.h"

// The functions that act on one element each: activations, and the two norms. Each is one struct that holds all there
// is to know of it:
//
//   value(x)        y
//   slope(x)        dy/dx, for tangents
//   pull(x, ybar)   the adjoint of x, in the order of operations that fixes its last bits
//   curvature(x)    d(slope)/dx, for the tangents of the adjoint
//
// PIECEWISE_LINEAR ones have a slope of 0 or 1 and no curvature; pull alone, a selection, serves them, so that nothing
// is multiplied by zero. Branches compare quietly (std::isless): a quiet NaN takes the "else" without a trap.

namespace VEMKN {

struct Id {
    static constexpr bool PIECEWISE_LINEAR = true;

    static double value(double x) { return x; }

    static double pull(double, double ybar) { return ybar; }
};

// y = max(x, 0), slope 1 at x = 0; keeps -0.0 and NaN.
struct Relu {
    static constexpr bool PIECEWISE_LINEAR = true;

    static double value(double x) { return std::isless(x, 0.0) ? 0.0 : x; }

    static double pull(double x, double ybar) { return std::isless(x, 0.0) ? 0.0 : ybar; }
};

struct Atan {
    static constexpr bool PIECEWISE_LINEAR = false;

    static double value(double x) { return std::atan(x); }

    static double slope(double x) { return 1.0 / (x * x + 1.0); }

    static double pull(double x, double ybar) { return ybar / (x * x + 1.0); }

    static double curvature(double x) {
        const double s = slope(x);
        return -2.0 * x * s * s;
    }
};

// y = log(1 + e^x). From CUTOFF on y = x to double precision; the cut-off keeps exp from overflowing.
struct Softplus {
    static constexpr bool PIECEWISE_LINEAR = false;
    static constexpr double CUTOFF = 300.0;

    static double value(double x) {
        return std::isless(x, CUTOFF) ? std::log(std::exp(x) + 1.0) : x;
    }

    static double slope(double x) {
        if (!std::isless(x, CUTOFF)) return 1.0;
        const double e = std::exp(x);
        return e / (1.0 + e);
    }

    static double pull(double x, double ybar) { return slope(x) * ybar; }

    static double curvature(double x) {
        if (!std::isless(x, CUTOFF)) return 0.0;
        const double e = std::exp(x);
        return e / (1.0 + e) / (1.0 + e);
    }
};

// The density of a residual: a Gaussian core of standard deviation sigma for |x| < 6 sigma, a Cauchy tail beyond.
// Deliberate: the pieces do not join. At |x| = 6 sigma the core gives 1.8e-8 and the tail 3.8e-5, so an outlier costs
// less than a residual just inside, and its cost grows with the logarithm only.
struct FatDensity {
    static constexpr double PI = 3.141592653589793;
    static constexpr double TWO_PI = 6.283185307179586;
    static constexpr double TAIL_SCALE = 0.0004785973257525766;
    static constexpr double TAIL_SCALE_SQ = 2.290554002175179e-7;

    static bool in_core(double x, double sigma) { return std::isless(std::fabs(x), 6.0 * sigma); }

    static double value(double x, double sigma) {
        if (!in_core(x, sigma)) return cauchy(x, TAIL_SCALE);
        return std::exp(x * x / (-2.0 * sigma * sigma)) * (1.0 / std::sqrt(TWO_PI * sigma * sigma));
    }

    static double cauchy(double x, double gamma) {
        return gamma * (1.0 / (PI * (x * x + TAIL_SCALE_SQ)));
    }

    // w * f'(x), given f = value(x, sigma).
    static double pull(double x, double w, double f, double sigma) {
        if (!in_core(x, sigma)) return pull_cauchy(x, w, TAIL_SCALE);
        return 2.0 * ((x * w) / (-2.0 * sigma * sigma)) * f;
    }

    static double pull_cauchy(double x, double w, double gamma) {
        const double d = PI * (x * x + TAIL_SCALE_SQ);
        return (-PI * gamma) * (2.0 * x * w) / (d * d);
    }
};

// y = -log f(x) + LOGP_BIAS with f the density above: 4.5 x^2 in the core, exactly 0 at 0.
struct LogDnorm {
    static constexpr bool PIECEWISE_LINEAR = false;

    static double value(double x) { return -std::log(density(x)) + LOGP_BIAS; }

    static double slope(double x) {
        return in_core(x) ? x / (LOGP_SIGMA * LOGP_SIGMA) : 2.0 * x * tail_reciprocal(x);
    }

    static double pull(double x, double ybar) {
        const double f = density(x);
        return FatDensity::pull(x, (-ybar) / f, f, LOGP_SIGMA);
    }

    static double curvature(double x) {
        if (in_core(x)) return 1.0 / (LOGP_SIGMA * LOGP_SIGMA);
        const double q = tail_reciprocal(x);
        return 2.0 * q - (2.0 * x * q) * (2.0 * x * q);
    }

private:
    static bool in_core(double x) { return FatDensity::in_core(x, LOGP_SIGMA); }

    static double density(double x) { return FatDensity::value(x, LOGP_SIGMA); }

    static double tail_reciprocal(double x) { return 1.0 / (x * x + FatDensity::TAIL_SCALE_SQ); }
};

}  // namespace VEMKN
