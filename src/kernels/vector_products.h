#pragma once

#include "kernels/kernels.h"
#include "kernels/registers.h"

// Products of which a factor or the result is a vector: those of a layer with one output. A BLAS call costs more than such a
// product of a few dozen rows (docs/performance.md).

namespace VEMKN {
namespace {

template <class L>
struct VectorProducts {
    using V = typename L::V;

    // Where one value goes, or is added.
    static void put(double* to, double value, bool add) { *to = add ? *to + value : value; }

    static void times_vector(const StridedView& A,
                             const double* x,
                             const StridedVector<double>& y,
                             bool add)
    {
        const auto [first, rows, cols, pitch] = A;
        const auto [to, step] = y;
        const std::size_t whole = cols / L::WIDTH * L::WIDTH;
        const int rest = static_cast<int>(cols - whole);
        const V zero = L::set(0.0);
        const V x_rest = rest == 0 ? zero : L::load_part(x + whole, rest, zero);
        const double* row = first;
        for (std::size_t r = 0; r < rows; ++r, row += pitch) {
            V sum = zero;
            for (std::size_t c = 0; c < whole; c += L::WIDTH) {
                sum = sum + L::load(row + c) * L::load(x + c);
            }
            if (rest != 0) sum = sum + L::load_part(row + whole, rest, zero) * x_rest;
            put(to + r * step, L::sum(sum), add);
        }
    }

    // load(p) moves a register of columns, spread(x) the number that they are multiplied by; the sums of REGISTERS of them,
    // from column `first` on.
    template <int REGISTERS, class Load, class Spread>
    static void sum_rows(const StridedView& A,
                         std::size_t first,
                         const StridedVector<const double>& x,
                         const Load& load,
                         const Spread& spread,
                         V* sums)
    {
        for (int j = 0; j < REGISTERS; ++j) sums[j] = L::set(0.0);
        const auto [elements, rows, cols, pitch] = A;
        const auto [factor_first, step] = x;
        const double *row = elements + first, *factor = factor_first;
        for (std::size_t r = 0; r < rows; ++r, row += pitch, factor += step) {
            const V f = spread(*factor);
            for (int j = 0; j < REGISTERS; ++j) sums[j] = sums[j] + load(row + j * L::WIDTH) * f;
        }
    }

    static void transposed_times_vector(const StridedView& A,
                                        const StridedVector<const double>& x,
                                        const StridedVector<double>& y,
                                        bool add)
    {
        const auto put_all = [&](const V& sum, std::size_t first, int n) {
            double all[L::WIDTH];
            L::store(all, sum);
            for (int i = 0; i < n; ++i) {
                put(y.data + (first + static_cast<std::size_t>(i)) * y.step, all[i], add);
            }
        };
        const std::size_t c = for_each_registers<L>(A.cols, [&](std::size_t first, auto registers) {
            V sums[registers()];
            sum_rows<registers()>(A, first, x, L::load, L::set, sums);
            for (int j = 0; j < registers(); ++j) {
                const std::size_t at = first + static_cast<std::size_t>(j) * L::WIDTH;
                if (y.step == 1 && !add) {
                    L::store(y.data + at, sums[j]);
                } else {
                    put_all(sums[j], at, L::WIDTH);
                }
            }
        });
        if (c == A.cols) return;
        const int rest = static_cast<int>(A.cols - c);
        const V zero = L::set(0.0);
        // Zero times zero beyond the last column: zero times an infinity would raise an exception.
        const double zeros[L::WIDTH] = {};
        const auto inside = L::equal(L::load_part(zeros, rest, L::set(1.0)), zero);
        V sum[1];
        sum_rows<1>(
            A,
            c,
            x,
            [=](const double* p) { return L::load_part(p, rest, zero); },
            [=](double factor) { return L::select(inside, L::set(factor), zero); },
            sum);
        put_all(sum[0], c, rest);
    }

    static void outer_product(const StridedVector<const double>& a,
                              const double* b,
                              const StridedMatrix<double>& C,
                              bool add)
    {
        const auto [first, rows, cols, pitch] = C;
        const std::size_t a_step = a.step;
        const std::size_t whole = cols / L::WIDTH * L::WIDTH;
        const int rest = static_cast<int>(cols - whole);
        // Ones beyond the last column: they raise no exception, whatever they are multiplied by.
        const V one = L::set(1.0);
        const V b_rest = rest == 0 ? one : L::load_part(b + whole, rest, one);
        const double* from = a.data;
        double* row = first;
        for (std::size_t r = 0; r < rows; ++r, from += a_step, row += pitch) {
            const V factor = L::set(*from);
            for (std::size_t c = 0; c < whole; c += L::WIDTH) {
                const V term = factor * L::load(b + c);
                L::store(row + c, add ? L::load(row + c) + term : term);
            }
            if (rest == 0) continue;
            const V term = factor * b_rest;
            if (add) {
                const V old = L::load_part(row + whole, rest, L::set(0.0));
                store_part<L>(row + whole, rest, old + term);
            } else if (pitch == cols && rows - r > L::WIDTH) {
                L::store(row + whole, term);  // what it writes too much the next rows write over
            } else {
                store_part<L>(row + whole, rest, term);
            }
        }
    }
};

}  // namespace
}  // namespace VEMKN
