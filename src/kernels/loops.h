#pragma once

#include "kernels/kernels.h"

// The loops of kernels/kernels.h over a lane type. Internal linkage: every instruction set compiles its own.

namespace VEMKN {
namespace {

// body(a, r) on WIDTH elements at a time, a[j] from in[j] and r[j] to out[j]. What remains goes through a full lane too,
// filled up with zeros, so that an element gets the same bits wherever it stands.
template <class L, int IN, int OUT, class Body>
[[gnu::always_inline]] inline void run(const double* const (&in)[IN],
                                       double* const (&out)[OUT],
                                       std::size_t n,
                                       Body body)
{
    typename L::V a[IN], r[OUT];
    std::size_t i = 0;
    for (; i + L::WIDTH <= n; i += L::WIDTH) {
        for (int j = 0; j < IN; ++j) a[j] = L::load(in[j] + i);
        body(a, r);
        for (int j = 0; j < OUT; ++j) L::store(out[j] + i, r[j]);
    }
    if (i == n) return;
    const std::size_t rest = n - i;
    double buffer[L::WIDTH] = {};
    for (int j = 0; j < IN; ++j) {
        for (std::size_t l = 0; l < rest; ++l) buffer[l] = in[j][i + l];
        a[j] = L::load(buffer);
    }
    body(a, r);
    for (int j = 0; j < OUT; ++j) {
        L::store(buffer, r[j]);
        for (std::size_t l = 0; l < rest; ++l) out[j][i + l] = buffer[l];
    }
}

template <class L, class F>
struct Loops {
    using V = typename L::V;

    static void value(const double* x, double* y, std::size_t n)
    {
        run<L, 1, 1>({x}, {y}, n, [](const V* a, V* r) { r[0] = F::template value<L>(a[0]); });
    }

    static void pull(const double* x, const double* ybar, double* xbar, std::size_t n)
    {
        run<L, 2, 1>(
            {x, ybar}, {xbar}, n, [](const V* a, V* r) { r[0] = F::template pull<L>(a[0], a[1]); });
    }

    static void value_slope(const double* x, double* y, double* slope, std::size_t n)
    {
        run<L, 1, 2>({x}, {y, slope}, n, [](const V* a, V* r) {
            const ValueSlope<L> terms = F::template value_slope<L>(a[0]);
            r[0] = terms.value;
            r[1] = terms.slope;
        });
    }

    static void pull_slope_bend(const double* x,
                                const double* ybar,
                                double* xbar,
                                double* slope,
                                double* bend,
                                std::size_t n)
    {
        run<L, 2, 3>({x, ybar}, {xbar, slope, bend}, n, [](const V* a, V* r) {
            const PullSlopeBend<L> terms = F::template pull_slope_bend<L>(a[0], a[1]);
            r[0] = terms.pull;
            r[1] = terms.slope;
            r[2] = terms.bend;
        });
    }

    static void adj_tangent(const double* x,
                            const double* slope,
                            const double* dybar,
                            const double* bend,
                            const double* dx,
                            double* dxbar,
                            std::size_t n)
    {
        run<L, 5, 1>({x, slope, dybar, bend, dx}, {dxbar}, n, [](const V* a, V* r) {
            r[0] = F::template adj_tangent<L>(a[0], a[1], a[2], a[3], a[4]);
        });
    }
};

template <class L, class F>
constexpr SmoothKernels smooth()
{
    using Of = Loops<L, F>;
    return {{Of::value, Of::pull}, Of::value_slope, Of::pull_slope_bend, Of::adj_tangent};
}

template <class L, class F>
constexpr ElementKernels piecewise_linear()
{
    return {Loops<L, F>::value, Loops<L, F>::pull};
}

template <class L>
struct Arithmetic {
    using V = typename L::V;

    static void multiply(const double* a, const double* b, double* to, std::size_t n)
    {
        run<L, 2, 1>({a, b}, {to}, n, [](const V* v, V* r) { r[0] = v[0] * v[1]; });
    }

    static void add(const double* a, double* to, std::size_t n)
    {
        run<L, 2, 1>({to, a}, {to}, n, [](const V* v, V* r) { r[0] = v[0] + v[1]; });
    }

    static void subtract(const double* a, double* to, std::size_t n)
    {
        run<L, 2, 1>({to, a}, {to}, n, [](const V* v, V* r) { r[0] = v[0] - v[1]; });
    }

    static void add_to_rows(const double* a, double* to, std::size_t rows, std::size_t cols)
    {
        if (cols == 1) {  // one column is one long row
            const V all = L::set(a[0]);
            run<L, 1, 1>({to}, {to}, rows, [=](const V* v, V* r) { r[0] = v[0] + all; });
        } else if (cols < L::WIDTH) {
            for (std::size_t i = 0; i < rows * cols; i += cols) {
                for (std::size_t c = 0; c < cols; ++c) to[i + c] += a[c];
            }
        } else {
            for (std::size_t row = 0; row < rows; ++row) add(a, to + row * cols, cols);
        }
    }

    // Sums of BLOCKS*WIDTH neighbouring columns, kept in registers.
    template <int BLOCKS>
    static void sum_block(const double* a, std::size_t rows, std::size_t cols, double* to)
    {
        V sum[BLOCKS];
        const double* row = a + (rows - 1) * cols;
        for (int j = 0; j < BLOCKS; ++j) sum[j] = L::load(row + j * L::WIDTH);
        for (std::size_t r = rows - 1; r-- > 0;) {
            row -= cols;
            for (int j = 0; j < BLOCKS; ++j) sum[j] = sum[j] + L::load(row + j * L::WIDTH);
        }
        for (int j = 0; j < BLOCKS; ++j) L::store(to + j * L::WIDTH, sum[j]);
    }

    static void sum_columns(const double* a, std::size_t rows, std::size_t cols, double* to)
    {
        std::size_t c = 0;
        for (; c + 4 * L::WIDTH <= cols; c += 4 * L::WIDTH) sum_block<4>(a + c, rows, cols, to + c);
        for (; c + L::WIDTH <= cols; c += L::WIDTH) sum_block<1>(a + c, rows, cols, to + c);
        for (; c < cols; ++c) {
            double sum = a[(rows - 1) * cols + c];
            for (std::size_t r = rows - 1; r-- > 0;) sum += a[r * cols + c];
            to[c] = sum;
        }
    }
};

template <class L>
constexpr Kernels kernels_for(const char* name)
{
    using A = Arithmetic<L>;
    return {name,
            piecewise_linear<L, Id>(),
            piecewise_linear<L, Relu>(),
            smooth<L, Atan>(),
            smooth<L, Softplus>(),
            smooth<L, LogDnorm>(),
            A::multiply,
            A::add,
            A::subtract,
            A::add_to_rows,
            A::sum_columns};
}

}  // namespace
}  // namespace VEMKN
