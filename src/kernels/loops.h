#pragma once

#include <algorithm>
#include <type_traits>

#include "kernels/kernels.h"
#include "kernels/lane.h"
#include "kernels/products.h"

// The loops of kernels/kernels.h over a lane type. Internal linkage: every instruction set compiles its own.

namespace VEMKN {
namespace {

// body(a, r) on WIDTH elements at a time, a[j] from in[j] and r[j] to out[j]. What remains goes through a full lane too,
// filled up with ones, so that an element gets the same bits wherever it stands. One is an argument that no function here
// raises an exception for, a density or a divisor included.
template <class L, int IN, int OUT, class Body>
[[gnu::always_inline]] inline void run(const double* const (&in)[IN],
                                       double* const (&out)[OUT],
                                       std::size_t n,
                                       Body body)
{
    using V = typename L::V;
    std::size_t i = 0;
    for (; i + L::WIDTH <= n; i += L::WIDTH) {
        V a[IN], r[OUT];
        for (int j = 0; j < IN; ++j) a[j] = L::load(in[j] + i);
        body(a, r);
        for (int j = 0; j < OUT; ++j) L::store(out[j] + i, r[j]);
    }
    if (i == n) return;
    const int rest = static_cast<int>(n - i);
    V a[IN], r[OUT];  // of their own: these stay in memory
    for (int j = 0; j < IN; ++j) a[j] = L::load_part(in[j] + i, rest, L::set(1.0));
    body(a, r);
    for (int j = 0; j < OUT; ++j) L::store_part(out[j] + i, rest, r[j]);
}

// body(c, registers) for columns c ... of a row, as many as fit a number of registers, at most MOST; returns where the rest
// begins.
template <class L, int MOST = 4, class Body>
[[gnu::always_inline]] inline std::size_t for_each_registers(std::size_t cols, const Body& body)
{
    std::size_t c = 0;
    const auto go = [&](auto registers) {
        constexpr std::size_t COLUMNS = registers() * L::WIDTH;
        for (; c + COLUMNS <= cols; c += COLUMNS) body(c, registers);
    };
    if constexpr (MOST >= 4) go(std::integral_constant<int, 4>());
    go(std::integral_constant<int, 2>());
    go(std::integral_constant<int, 1>());
    return c;
}

// Rows that are longer, or whole registers long, are not repeated.
inline constexpr std::size_t LONGEST_REPEATED = 64;

// to = row, n times, and up to a register more.
template <class L>
void repeat_row(const double* row, std::size_t cols, std::size_t n, double* to)
{
    if (cols == 1) {
        for (std::size_t k = 0; k < n; k += L::WIDTH) L::store(to + k, L::set(row[0]));
        return;
    }
    // What one store writes too much the next one writes over.
    for (std::size_t k = 0; k < n; ++k, to += cols) {
        std::size_t c = 0;
        for (; c + L::WIDTH <= cols; c += L::WIDTH) L::store(to + c, L::load(row + c));
        if (c < cols) {
            L::store(to + c, L::load_part(row + c, static_cast<int>(cols - c), L::set(1.0)));
        }
    }
}

// run() with a[j] from `shared`, a number for each element of a matrix, and then from `own`, a number for each element of
// each of its derivatives, or adjoints, and one result for each of these. Short rows that do not fill their registers are repeated, once
// for each derivative, so that the derivatives of a row, where they follow one another, are one long row.
template <class L, int SHARED, int OWN, class Body>
[[gnu::always_inline]] inline void run_each(const double* const (&shared)[SHARED],
                                            const double* const (&own)[OWN],
                                            double* out,
                                            const SideBySide& s,
                                            Body body)
{
    const double* in[SHARED + OWN];
    const auto run_row = [&](std::size_t at, std::size_t n) {
        for (int j = 0; j < OWN; ++j) in[SHARED + j] = own[j] + at;
        double* const to[] = {out + at};
        const double* const(&all)[SHARED + OWN] = in;
        run<L, SHARED + OWN, 1>(all, to, n, body);
    };
    if (s.n == 0) return;
    if (s.n == 1 && s.pitch == s.cols) {
        for (int j = 0; j < SHARED; ++j) in[j] = shared[j];
        run_row(0, s.rows * s.cols);
        return;
    }
    constexpr int MOST_REGISTERS = SHARED == 1 ? 4 : 2;
    if (s.cols % L::WIDTH == 0 || s.cols > LONGEST_REPEATED || s.step != s.cols) {
        for (std::size_t r = 0; r < s.rows; ++r) {
            const auto columns = [&](std::size_t c, auto registers) {
                constexpr int REGISTERS = registers();
                typename L::V a[REGISTERS][SHARED + OWN], result[1];
                for (int i = 0; i < REGISTERS; ++i) {
                    for (int j = 0; j < SHARED; ++j) {
                        a[i][j] = L::load(shared[j] + r * s.cols + c + i * L::WIDTH);
                    }
                }
                for (std::size_t k = 0; k < s.n; ++k) {
                    const std::size_t at = r * s.pitch + k * s.step + c;
                    for (int i = 0; i < REGISTERS; ++i) {
                        for (int j = 0; j < OWN; ++j) {
                            a[i][SHARED + j] = L::load(own[j] + at + i * L::WIDTH);
                        }
                        body(a[i], result);
                        L::store(out + at + i * L::WIDTH, result[0]);
                    }
                }
            };
            const std::size_t rest = for_each_registers<L, MOST_REGISTERS>(s.cols, columns);
            if (rest == s.cols) continue;
            for (int j = 0; j < SHARED; ++j) in[j] = shared[j] + r * s.cols + rest;
            for (std::size_t k = 0; k < s.n; ++k) {
                run_row(r * s.pitch + k * s.step + rest, s.cols - rest);
            }
        }
        return;
    }
    // Several rows at a time where no gaps lie between: what is stored here is then not read back at once.
    constexpr std::size_t LONGEST = 512;
    alignas(64) double repeated[SHARED][LONGEST + L::WIDTH];
    for (int j = 0; j < SHARED; ++j) in[j] = repeated[j];
    const std::size_t at_once = std::min(s.n, LONGEST / s.cols), wide = at_once * s.cols;
    const bool dense = at_once == s.n && s.pitch == wide;
    const std::size_t height = dense ? LONGEST / wide : 1;
    for (std::size_t first = 0; first < s.rows; first += height) {
        const std::size_t rows = std::min(height, s.rows - first);
        for (int j = 0; j < SHARED; ++j) {
            for (std::size_t r = 0; r < rows; ++r) {
                repeat_row<L>(
                    shared[j] + (first + r) * s.cols, s.cols, at_once, repeated[j] + r * wide);
            }
        }
        for (std::size_t k = 0; k < s.n; k += at_once) {
            run_row(first * s.pitch + k * s.step, rows * std::min(at_once, s.n - k) * s.cols);
        }
    }
}

template <class L, class F>
struct Loops {
    using V = typename L::V;

    static void saved(const double* x, double* saved, std::size_t n)
    {
        run<L, 1, 1>({x}, {saved}, n, [](const V* a, V* r) { r[0] = F::template saved<L>(a[0]); });
    }

    static void value(const double* x, const double* saved, double* y, std::size_t n)
    {
        run<L, 2, 1>(
            {x, saved}, {y}, n, [](const V* a, V* r) { r[0] = F::template value<L>(a[0], a[1]); });
    }

    static void vjp(
        const double* x, const double* saved, const double* ybar, double* xbar, std::size_t n)
    {
        run<L, 3, 1>({x, saved, ybar}, {xbar}, n, [](const V* a, V* r) {
            r[0] = F::template vjp<L>(a[0], a[1], a[2]);
        });
    }

    static void vjp_each(
        const double* x, const double* saved, const double* ybar, double* xbar, const SideBySide& s)
    {
        run_each<L, 2, 1>({x, saved}, {ybar}, xbar, s, [](const V* a, V* r) {
            r[0] = F::template vjp<L>(a[0], a[1], a[2]);
        });
    }

    static void value_term(
        const double* x, const double* saved, double* y, double* term, std::size_t n)
    {
        run<L, 2, 2>({x, saved}, {y, term}, n, [](const V* a, V* r) {
            const ValueTerm<L> both = F::template value_term<L>(a[0], a[1]);
            r[0] = both.value;
            r[1] = both.term;
        });
    }

    static void tangent(
        const double* x, const double* term, const double* dx, double* dy, const SideBySide& s)
    {
        run_each<L, 2, 1>({x, term}, {dx}, dy, s, [](const V* a, V* r) {
            r[0] = F::template tangent<L>(a[0], a[1], a[2]);
        });
    }

    static void vjp_terms(const double* x,
                          const double* saved,
                          const double* ybar,
                          double* xbar,
                          double* term,
                          double* ybar_term,
                          std::size_t n)
    {
        run<L, 3, 3>({x, saved, ybar}, {xbar, term, ybar_term}, n, [](const V* a, V* r) {
            const VjpTerms<L> terms = F::template vjp_terms<L>(a[0], a[1], a[2]);
            r[0] = terms.vjp;
            r[1] = terms.term;
            r[2] = terms.ybar_term;
        });
    }

    static void vjp_tangent(const double* x,
                            const double* term,
                            const double* ybar_term,
                            const double* dybar,
                            const double* dx,
                            double* dxbar,
                            const SideBySide& s)
    {
        run_each<L, 3, 2>({x, term, ybar_term}, {dybar, dx}, dxbar, s, [](const V* a, V* r) {
            r[0] = F::template vjp_tangent<L>(a[0], a[1], a[3], a[2], a[4]);
        });
    }

    static constexpr ElementKernels kernels()
    {
        ElementKernels all{};
        all.value = value;
        all.vjp = vjp;
        all.vjp_each = vjp_each;
        if constexpr (F::SAVES) all.saved = saved;
        if constexpr (F::IS_SMOOTH) {
            all.value_term = value_term;
            all.tangent = tangent;
            all.vjp_terms = vjp_terms;
            all.vjp_tangent = vjp_tangent;
        }
        return all;
    }
};

template <class L, class... F>
constexpr ElementTable<FunctionList<F...>> element_table(FunctionList<F...>)
{
    return {KernelsOf<F>{Loops<L, F>::kernels()}...};
}

template <class L>
struct Arithmetic {
    using V = typename L::V;

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
    static void add_to_registers(const double* a, double* to, std::size_t rows, std::size_t pitch)
    {
        V addend[REGISTERS];
        for (int j = 0; j < REGISTERS; ++j) addend[j] = L::load(a + j * L::WIDTH);
        for (std::size_t r = 0; r < rows; ++r, to += pitch) {
            for (int j = 0; j < REGISTERS; ++j) {
                double* const at = to + j * L::WIDTH;
                L::store(at, L::load(at) + addend[j]);
            }
        }
    }

    // a += all along a row; what does not fill a register one by one.
    static void add_to_row(const double* a, double* to, std::size_t cols)
    {
        std::size_t c = for_each_registers<L>(cols, [&](std::size_t first, auto registers) {
            add_to_registers<registers()>(a + first, to + first, 1, 0);
        });
        for (; c < cols; ++c) to[c] += a[c];
    }

    // An addend of whole registers stays in them, some at a time, unless rows are so long that they leave the cache meanwhile.
    // A short one that is not is repeated along a row that several rows make together, where they follow one another.
    static void add_to_rows(const double* a, const StridedMatrix<double>& to)
    {
        constexpr std::size_t SHORT = 3 * L::WIDTH, LONG = 128;
        const std::size_t cols = to.cols;
        if (cols % L::WIDTH == 0 && cols <= LONG) {
            for_each_registers<L>(cols, [&](std::size_t c, auto registers) {
                add_to_registers<registers()>(a + c, to.data + c, to.rows, to.pitch);
            });
            return;
        }
        if (cols >= SHORT || to.pitch != cols) {
            for (std::size_t r = 0; r < to.rows; ++r) add_to_row(a, to.data + r * to.pitch, cols);
            return;
        }
        double repeated[SHORT + L::WIDTH];
        for (std::size_t i = 0; i < cols + L::WIDTH; ++i) {
            repeated[i] = i < cols ? a[i] : repeated[i - cols];
        }
        const std::size_t step = L::WIDTH % cols;
        std::size_t at = 0;
        run<L, 1, 1>({to.data}, {to.data}, to.rows * cols, [&](const V* v, V* r) {
            r[0] = v[0] + L::load(repeated + at);
            at += step;
            at = at >= cols ? at - cols : at;
        });
    }

    // Sums of `registers` of neighbouring columns. load(p) moves the columns of one.
    template <int REGISTERS, class Load, class Store>
    static void sum_registers(const double* a,
                              std::size_t rows,
                              std::size_t pitch,
                              double* to,
                              bool go_on,
                              const Load& load,
                              const Store& store)
    {
        V sum[REGISTERS];
        const double* row = a + rows * pitch;
        const double* const begin = go_on ? to : row -= pitch;
        for (int j = 0; j < REGISTERS; ++j) sum[j] = load(begin + j * L::WIDTH);
        while (row != a) {
            row -= pitch;
            for (int j = 0; j < REGISTERS; ++j) sum[j] = sum[j] + load(row + j * L::WIDTH);
        }
        for (int j = 0; j < REGISTERS; ++j) store(to + j * L::WIDTH, sum[j]);
    }

    static void sum_columns(const StridedView& A, double* to, bool go_on)
    {
        const std::size_t c = for_each_registers<L>(A.cols, [&](std::size_t first, auto registers) {
            sum_registers<registers()>(
                A.data + first, A.rows, A.pitch, to + first, go_on, L::load, L::store);
        });
        if (c == A.cols) return;
        const int rest = static_cast<int>(A.cols - c);
        sum_registers<1>(
            A.data + c,
            A.rows,
            A.pitch,
            to + c,
            go_on,
            [=](const double* p) { return L::load_part(p, rest, L::set(0.0)); },
            [=](double* p, V v) { L::store_part(p, rest, v); });
    }

    // Adds the sums of a register of neighbouring columns over each of PARTS parts, of which A is the first; side by side since an
    // addition waits for the one before it.
    template <std::size_t PARTS, class Load, class Store>
    [[gnu::always_inline]] static void add_sums_of_parts(const StridedView& A,
                                                         double* to,
                                                         const Load& load,
                                                         const Store& store)
    {
        const std::size_t n = A.rows;
        const double* row = A.data + (n - 1) * A.pitch;
        V sums[PARTS];
        for (std::size_t i = 0; i < PARTS; ++i) sums[i] = load(row + i * n * A.pitch);
        for (std::size_t r = 1; r < n; ++r) {
            row -= A.pitch;
            for (std::size_t i = 0; i < PARTS; ++i) sums[i] = sums[i] + load(row + i * n * A.pitch);
        }
        V all = load(to);
        for (std::size_t i = 0; i < PARTS; ++i) all = all + sums[i];
        store(to, all);
    }

    static void add_column_sums(const StridedView& A, std::size_t part, double* to)
    {
        const auto side_by_side = [&](std::size_t c, const auto& load, const auto& store) {
            for_parts<3>(A.rows, part, [&](auto parts, std::size_t first, std::size_t n) {
                const StridedView from{A.data + first * A.pitch + c, n, A.cols, A.pitch};
                add_sums_of_parts<parts()>(from, to + c, load, store);
            });
        };
        const auto load = [](const double* p) { return L::load(p); };
        const auto store = [](double* p, V v) { L::store(p, v); };
        const auto add = [](double* p, V v) { L::store(p, L::load(p) + v); };
        const std::size_t c = for_each_registers<L>(A.cols, [&](std::size_t first, auto registers) {
            if constexpr (registers() == 1) return side_by_side(first, load, store);
            for_parts<1>(A.rows, part, [&](auto, std::size_t row, std::size_t n) {
                const double* const a = A.data + row * A.pitch + first;
                sum_registers<registers()>(a, n, A.pitch, to + first, false, load, add);
            });
        });
        if (c == A.cols) return;
        const int rest = static_cast<int>(A.cols - c);
        side_by_side(
            c,
            [=](const double* p) { return L::load_part(p, rest, L::set(0.0)); },
            [=](double* p, V v) { L::store_part(p, rest, v); });
    }
};

template <class L>
constexpr Kernels kernels_for(const char* name)
{
    using A = Arithmetic<L>;
    return {.name = name,
            .elements = element_table<L>(ElementFunctions()),
            .add = A::add,
            .subtract = A::subtract,
            .all_finite = A::all_finite,
            .add_to_rows = A::add_to_rows,
            .sum_columns = A::sum_columns,
            .add_column_sums = A::add_column_sums,
            .product = product};
}

}  // namespace
}  // namespace VEMKN
