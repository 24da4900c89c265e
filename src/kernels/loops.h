#pragma once

#include <type_traits>

#include "kernels/kernels.h"

// The loops of kernels/kernels.h over a lane type. Internal linkage: every instruction set compiles its own.

namespace VEMKN {
namespace {

// The first n < WIDTH doubles of v to memory. One by one: what reads them next may read them as part of a vector, which
// has to wait long for a masked store.
template <class L>
void store_part(double* p, int n, typename L::V v)
{
    double all[L::WIDTH];
    L::store(all, v);
    for (int i = 0; i < n; ++i) p[i] = all[i];
}

// body(a, r) on WIDTH elements at a time, a[j] from in[j] and r[j] to out[j]. What remains goes through a full lane too,
// filled up with ones, so that an element gets the same bits wherever it stands. One is an argument that no function here
// raises an exception for, a density or a divisor included.
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
    const int rest = static_cast<int>(n - i);
    for (int j = 0; j < IN; ++j) a[j] = L::load_part(in[j] + i, rest, L::set(1.0));
    body(a, r);
    for (int j = 0; j < OUT; ++j) store_part<L>(out[j] + i, rest, r[j]);
}

template <class L, class F>
struct Loops {
    using V = typename L::V;

    static void inner(const double* x, double* t, std::size_t n)
    {
        run<L, 1, 1>({x}, {t}, n, [](const V* a, V* r) { r[0] = F::template inner<L>(a[0]); });
    }

    static void value(const double* x, const double* t, double* y, std::size_t n)
    {
        run<L, 2, 1>(
            {x, t}, {y}, n, [](const V* a, V* r) { r[0] = F::template value<L>(a[0], a[1]); });
    }

    static void pull(
        const double* x, const double* t, const double* ybar, double* xbar, std::size_t n)
    {
        run<L, 3, 1>({x, t, ybar}, {xbar}, n, [](const V* a, V* r) {
            r[0] = F::template pull<L>(a[0], a[1], a[2]);
        });
    }

    static void value_slope(
        const double* x, const double* t, double* y, double* slope, std::size_t n)
    {
        run<L, 2, 2>({x, t}, {y, slope}, n, [](const V* a, V* r) {
            const ValueSlope<L> terms = F::template value_slope<L>(a[0], a[1]);
            r[0] = terms.value;
            r[1] = terms.slope;
        });
    }

    static void pull_slope_bend(const double* x,
                                const double* t,
                                const double* ybar,
                                double* xbar,
                                double* slope,
                                double* bend,
                                std::size_t n)
    {
        run<L, 3, 3>({x, t, ybar}, {xbar, slope, bend}, n, [](const V* a, V* r) {
            const PullSlopeBend<L> terms = F::template pull_slope_bend<L>(a[0], a[1], a[2]);
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
constexpr ElementKernels element_kernels_for()
{
    using Of = Loops<L, F>;
    if constexpr (F::HAS_INNER) {
        return {Of::inner, Of::value, Of::pull};
    } else {
        return {nullptr, Of::value, Of::pull};
    }
}

template <class L, class F>
constexpr SmoothKernels smooth()
{
    using Of = Loops<L, F>;
    return {element_kernels_for<L, F>(), Of::value_slope, Of::pull_slope_bend, Of::adj_tangent};
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

    static bool all_finite(const double* a, std::size_t n)
    {
        V finite = L::set(1.0);
        const auto look = [&](V v) {
            finite = L::select(L::less(L::abs(v), L::set(__builtin_inf())), finite, L::set(0.0));
        };
        std::size_t i = 0;
        for (; i + L::WIDTH <= n; i += L::WIDTH) look(L::load(a + i));
        if (i < n) look(L::load_part(a + i, static_cast<int>(n - i), L::set(0.0)));
        return !L::any(L::equal(finite, L::set(0.0)));
    }

    // Adds to `REGISTERS` registers of neighbouring columns.
    template <int REGISTERS>
    static void add_to_registers(const double* a, double* to, std::size_t rows, std::size_t cols)
    {
        V addend[REGISTERS];
        for (int j = 0; j < REGISTERS; ++j) addend[j] = L::load(a + j * L::WIDTH);
        for (std::size_t r = 0; r < rows; ++r, to += cols) {
            for (int j = 0; j < REGISTERS; ++j) {
                double* const at = to + j * L::WIDTH;
                L::store(at, L::load(at) + addend[j]);
            }
        }
    }

    // Rows that are whole registers long stay where they are; others are added to as one long row, the addend repeated all
    // along it.
    static void add_to_rows(const double* a, double* to, std::size_t rows, std::size_t cols)
    {
        constexpr std::size_t LONGEST = 512;
        if (cols % L::WIDTH == 0) {
            for_each_registers(cols, [&](std::size_t c, auto registers) {
                add_to_registers<registers()>(a + c, to + c, rows, cols);
            });
            return;
        }
        if (cols > LONGEST) {
            for (std::size_t row = 0; row < rows; ++row) add(a, to + row * cols, cols);
            return;
        }
        double repeated[LONGEST + L::WIDTH];
        for (std::size_t i = 0; i < cols + L::WIDTH; ++i) {
            repeated[i] = i < cols ? a[i] : repeated[i - cols];
        }
        const std::size_t step = L::WIDTH % cols;
        std::size_t at = 0;
        run<L, 1, 1>({to}, {to}, rows * cols, [&](const V* v, V* r) {
            r[0] = v[0] + L::load(repeated + at);
            at += step;
            at = at >= cols ? at - cols : at;
        });
    }

    // body(c, registers) for columns c ... of a row, as many as fit a number of registers; returns where the rest begins.
    template <class Body>
    static std::size_t for_each_registers(std::size_t cols, const Body& body)
    {
        std::size_t c = 0;
        const auto go = [&](auto registers) {
            constexpr std::size_t COLUMNS = registers() * L::WIDTH;
            for (; c + COLUMNS <= cols; c += COLUMNS) body(c, registers);
        };
        go(std::integral_constant<int, 4>());
        go(std::integral_constant<int, 2>());
        go(std::integral_constant<int, 1>());
        return c;
    }

    // Sums of `registers` of neighbouring columns. load(p) moves the columns of one.
    template <int REGISTERS, class Load, class Store>
    static void sum_registers(const double* a,
                              std::size_t rows,
                              std::size_t cols,
                              double* to,
                              const Load& load,
                              const Store& store)
    {
        V sum[REGISTERS];
        const double* row = a + (rows - 1) * cols;
        for (int j = 0; j < REGISTERS; ++j) sum[j] = load(row + j * L::WIDTH);
        for (std::size_t r = rows - 1; r-- > 0;) {
            row -= cols;
            for (int j = 0; j < REGISTERS; ++j) sum[j] = sum[j] + load(row + j * L::WIDTH);
        }
        for (int j = 0; j < REGISTERS; ++j) store(to + j * L::WIDTH, sum[j]);
    }

    static void sum_columns(const double* a, std::size_t rows, std::size_t cols, double* to)
    {
        const std::size_t c = for_each_registers(cols, [&](std::size_t first, auto registers) {
            sum_registers<registers()>(a + first, rows, cols, to + first, L::load, L::store);
        });
        if (c == cols) return;
        const int rest = static_cast<int>(cols - c);
        sum_registers<1>(
            a + c,
            rows,
            cols,
            to + c,
            [=](const double* p) { return L::load_part(p, rest, L::set(0.0)); },
            [=](double* p, V v) { store_part<L>(p, rest, v); });
    }
};

template <class L>
constexpr Kernels kernels_for(const char* name)
{
    using A = Arithmetic<L>;
    return {name,
            element_kernels_for<L, Id>(),
            element_kernels_for<L, Relu>(),
            smooth<L, Atan>(),
            smooth<L, Softplus>(),
            smooth<L, LogDnorm>(),
            A::multiply,
            A::add,
            A::subtract,
            A::all_finite,
            A::add_to_rows,
            A::sum_columns};
}

}  // namespace
}  // namespace VEMKN
