#pragma once

#include <hwy/highway.h>

#include "kernels/functions.h"

// What the kernels compute with: V, as many doubles as a register of the instruction set holds that the file is compiled for,
// with + - * / and unary minus of Highway. Internal linkage: every instruction set compiles its own.

namespace VEMKN {
namespace {

template <class Tag>
struct LaneOf {
    using D = Tag;
    using V = hn::Vec<D>;
    using Mask = hn::Mask<D>;
    static constexpr int WIDTH = static_cast<int>(hn::MaxLanes(D()));

    static V set(double a) { return hn::Set(D(), a); }

    static V load(const double* p) { return hn::LoadU(D(), p); }

    static void store(double* p, V v) { hn::StoreU(v, D(), p); }

    // n < WIDTH doubles of memory, followed by those of rest.
    static V load_part(const double* p, int n, V rest)
    {
#if HWY_TARGET <= HWY_AVX2
        const Mask part = hn::FirstN(D(), static_cast<std::size_t>(n));
        return hn::IfThenElse(part, hn::MaskedLoad(part, D(), p), rest);
#else
        // Without masks in the processor Highway reads all of the register.
        double all[WIDTH];
        store(all, rest);
        for (int i = 0; i < n; ++i) all[i] = p[i];
        return load(all);
#endif
    }

    // The first n < WIDTH doubles of v to memory. One by one: what reads them next may read them as part of a vector, which
    // has to wait long for a masked store.
    static void store_part(double* p, int n, V v)
    {
        double all[WIDTH];
        store(all, v);
        for (int i = 0; i < n; ++i) p[i] = all[i];
    }

    static Mask less(V a, V b)
    {
        return VEMKN::less<D>(a, b);
    }

    static Mask equal(V a, V b)
    {
        return hn::Eq(a, b);
    }

    static bool any(Mask m)
    {
        return !hn::AllFalse(D(), m);
    }

    static V select(Mask m, V a, V b)
    {
        V selected = hn::IfThenElse(m, a, b);
#if HWY_TARGET == HWY_SCALAR
        // Else the compiler may drop a product by a slope of 1, and with it what a signaling NaN raises.
        asm("" : "+x"(selected.raw));
#endif
        return selected;
    }

    static V abs(V a)
    {
        return hn::Abs(a);
    }

    static V negate(V a)
    {
        return hn::Neg(a);
    }

    static V multiply_add(V a, V b, V c)
    {
        return hn::MulAdd(a, b, c);
    }

    // rows[i] lane j and rows[j] lane i change places.
    template <std::size_t N>
    [[gnu::always_inline]] static void transpose([[maybe_unused]] V (&rows)[N])
    {
        static_assert(N == WIDTH);
#if HWY_TARGET != HWY_SCALAR
        const D d;
        V pairs[N];
        for (std::size_t i = 0; i < N; i += 2) {
            pairs[i] = hn::InterleaveLower(d, rows[i], rows[i + 1]);
            pairs[i + 1] = hn::InterleaveUpper(d, rows[i], rows[i + 1]);
        }
        if constexpr (N == 2) {
            for (std::size_t i = 0; i < N; ++i) rows[i] = pairs[i];
        } else if constexpr (N == 4) {
            for (std::size_t i = 0; i < 2; ++i) {
                rows[i] = hn::ConcatLowerLower(d, pairs[i + 2], pairs[i]);
                rows[i + 2] = hn::ConcatUpperUpper(d, pairs[i + 2], pairs[i]);
            }
        } else {
            // Of the upper and the lower four rows: even and odd blocks of even and odd columns.
            V blocks[2][4];
            for (std::size_t half = 0; half < 2; ++half) {
                for (std::size_t odd = 0; odd < 2; ++odd) {
                    const V first = pairs[4 * half + odd], second = pairs[4 * half + 2 + odd];
                    blocks[half][odd] = hn::OddEvenBlocks(hn::SwapAdjacentBlocks(second), first);
                    blocks[half][2 + odd] =
                        hn::OddEvenBlocks(second, hn::SwapAdjacentBlocks(first));
                }
            }
            for (std::size_t i = 0; i < 4; ++i) {
                rows[i] = hn::ConcatLowerLower(d, blocks[1][i], blocks[0][i]);
                rows[i + 4] = hn::ConcatUpperUpper(d, blocks[1][i], blocks[0][i]);
            }
        }
#endif
    }

    // Lane j of rows[i] from column(j)[i].
    template <std::size_t N, class Column>
    [[gnu::always_inline]] static void load_transposed(const Column& column, V (&rows)[N])
    {
        static_assert(N == WIDTH);
#if HWY_TARGET == HWY_SCALAR
        rows[0] = load(column(0));
#else
        const D d;
        const hn::Half<D> half;
        const auto halves = [&](std::size_t j, std::size_t i) {
            return hn::Combine(
                d, hn::LoadU(half, column(j + N / 2) + i), hn::LoadU(half, column(j) + i));
        };
        const auto pair = [&](V even, V odd, V& first, V& second) {
            first = hn::InterleaveLower(d, even, odd);
            second = hn::InterleaveUpper(d, even, odd);
        };
        // A load that inserts takes no shuffle.
        if constexpr (N == 2) {
            pair(load(column(0)), load(column(1)), rows[0], rows[1]);
        } else if constexpr (N == 4) {
            pair(halves(0, 0), halves(1, 0), rows[0], rows[1]);
            pair(halves(0, 2), halves(1, 2), rows[2], rows[3]);
        } else {
            static_assert(N == 8);
            const auto lower = [](V a, V b) {
                return hn::OddEvenBlocks(hn::SwapAdjacentBlocks(b), a);
            };
            const auto upper = [](V a, V b) {
                return hn::OddEvenBlocks(b, hn::SwapAdjacentBlocks(a));
            };
            {
                const V a = halves(0, 0), b = halves(1, 0), c = halves(2, 0), e = halves(3, 0);
                pair(lower(a, c), lower(b, e), rows[0], rows[1]);
                pair(upper(a, c), upper(b, e), rows[2], rows[3]);
            }
            const V a = halves(0, 4), b = halves(1, 4), c = halves(2, 4), e = halves(3, 4);
            pair(lower(a, c), lower(b, e), rows[4], rows[5]);
            pair(upper(a, c), upper(b, e), rows[6], rows[7]);
        }
#endif
    }

    static V exp(V x)
    {
        return Functions<D>::exp(x);
    }

    static V log(V x)
    {
        return Functions<D>::log(x);
    }

    static V atan(V x)
    {
        return Functions<D>::atan(x);
    }
};

using Lane = LaneOf<hn::ScalableTag<double>>;

}  // namespace
}  // namespace VEMKN
