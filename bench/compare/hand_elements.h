#pragma once

// The functions of one element, written as a user would: plain loops that the compiler turns into the vector functions
// of glibc (compile with -ffast-math). Each loop works in place and runs over n consecutive elements.
//
//   z       in: the argument, out: the value
//   slope   out: the first derivative
//   ratio   out: the second derivative over the first

#include <cmath>
#include <cstddef>

namespace compare {

struct HandSoftplus {
    static constexpr bool curves = true;
    // From here on the value is the argument to double precision, and exp may overflow.
    static constexpr double CUTOFF = 300.0;

    static void values(double* __restrict z, std::size_t n)
    {
        for (std::size_t i = 0; i < n; ++i) {
            const double x = z[i], y = std::log(1.0 + std::exp(x));
            z[i] = x < CUTOFF ? y : x;
        }
    }

    static void slopes(double* __restrict z, double* __restrict slope, std::size_t n)
    {
        for (std::size_t i = 0; i < n; ++i) {
            const double x = z[i], e = std::exp(x), q = 1.0 + e;
            z[i] = x < CUTOFF ? std::log(q) : x;
            slope[i] = x < CUTOFF ? e / q : 1.0;
        }
    }

    static void curvatures(double* __restrict z,
                           double* __restrict slope,
                           double* __restrict ratio,
                           std::size_t n)
    {
        for (std::size_t i = 0; i < n; ++i) {
            const double x = z[i], e = std::exp(x), q = 1.0 + e, p = 1.0 / q;
            z[i] = x < CUTOFF ? std::log(q) : x;
            slope[i] = x < CUTOFF ? e * p : 1.0;
            ratio[i] = x < CUTOFF ? p : 0.0;
        }
    }
};

struct HandAtan {
    static constexpr bool curves = true;

    static void values(double* __restrict z, std::size_t n)
    {
        for (std::size_t i = 0; i < n; ++i) z[i] = std::atan(z[i]);
    }

    static void slopes(double* __restrict z, double* __restrict slope, std::size_t n)
    {
        for (std::size_t i = 0; i < n; ++i) {
            const double x = z[i];
            z[i] = std::atan(x);
            slope[i] = 1.0 / (1.0 + x * x);
        }
    }

    static void curvatures(double* __restrict z,
                           double* __restrict slope,
                           double* __restrict ratio,
                           std::size_t n)
    {
        for (std::size_t i = 0; i < n; ++i) {
            const double x = z[i], s = 1.0 / (1.0 + x * x);
            z[i] = std::atan(x);
            slope[i] = s;
            ratio[i] = -2.0 * x * s;
        }
    }
};

struct HandRelu {
    static constexpr bool curves = false;

    static void values(double* __restrict z, std::size_t n)
    {
        for (std::size_t i = 0; i < n; ++i) z[i] = z[i] < 0.0 ? 0.0 : z[i];
    }

    static void slopes(double* __restrict z, double* __restrict slope, std::size_t n)
    {
        for (std::size_t i = 0; i < n; ++i) {
            const double x = z[i];
            z[i] = x < 0.0 ? 0.0 : x;
            slope[i] = x < 0.0 ? 0.0 : 1.0;
        }
    }

    static void curvatures(double* z, double* slope, double*, std::size_t n)
    {
        slopes(z, slope, n);
    }
};

// The negative log-likelihood of a residual: 4.5 r^2 for |r| < 2, log(r^2 + GAMMA^2) + TAIL beyond.
struct HandNorm {
    static constexpr double GAMMA_SQ = 2.290554002175179e-7;
    // log(3 pi / (sqrt(2 pi) GAMMA))
    static constexpr double TAIL = 8.96905461146455;

    static double value(double r)
    {
        return r * r < 4.0 ? 4.5 * r * r : std::log(r * r + GAMMA_SQ) + TAIL;
    }

    // Residuals beyond 2 are rare: a branch for them costs less than a logarithm of every residual.
    static double sum(const double* r, std::size_t n)
    {
        double core = 0.0, tail = 0.0;
        for (std::size_t i = 0; i < n; ++i) core += r[i] * r[i] < 4.0 ? 4.5 * r[i] * r[i] : 0.0;
        for (std::size_t i = 0; i < n; ++i) {
            if (r[i] * r[i] >= 4.0) tail += value(r[i]);
        }
        return core + tail;
    }

    // Residuals to values.
    static void values(double* r, std::size_t n)
    {
        for (std::size_t i = 0; i < n; ++i) r[i] = value(r[i]);
    }

    // slope = scale * derivative
    static void slopes(const double* __restrict r,
                       double* __restrict slope,
                       double scale,
                       std::size_t n)
    {
        for (std::size_t i = 0; i < n; ++i) {
            const double x = r[i], sq = x * x;
            slope[i] = scale * x * (sq < 4.0 ? 9.0 : 2.0 / (sq + GAMMA_SQ));
        }
    }

    // slope = scale * derivative, curvature = scale * second derivative
    static void curvatures(const double* __restrict r,
                           double* __restrict slope,
                           double* __restrict curvature,
                           double scale,
                           std::size_t n)
    {
        for (std::size_t i = 0; i < n; ++i) {
            const double x = r[i], sq = x * x, p = 2.0 / (sq + GAMMA_SQ);
            slope[i] = scale * x * (sq < 4.0 ? 9.0 : p);
            curvature[i] = scale * (sq < 4.0 ? 9.0 : p - sq * p * p);
        }
    }
};

}  // namespace compare
