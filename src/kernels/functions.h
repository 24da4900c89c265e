#pragma once

#include <hwy/highway.h>

#include <cfloat>
#include <cstddef>
#include <cstdint>

// exp, log and atan of a register of doubles, and of every double: the same operations in the same order on every instruction
// set, so the same bits wherever there is a fused multiply-add. They raise invalid, division by zero and overflow where the
// functions of the C maths library do.
//
// Each reduces its argument so that what is left of it is exact, or its error is carried along, and ends with one sum of a
// large part and a small one. The polynomials are minimax approximations with coefficients that are doubles, computed with
// Sollya's fpminimax; what they are off by is below a tenth of what the last roundings are. docs/accuracy.md has the errors.

namespace VEMKN {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

// a < b without an exception for a quiet NaN. Comparisons for order are quiet on AVX and AVX-512 only: elsewhere a NaN is set
// to zero before it is compared.
template <class D, class V = hn::Vec<D>>
hn::Mask<D> less(V a, V b)
{
#if HWY_TARGET <= HWY_AVX2
    return hn::Lt(a, b);
#else
    const auto ordered = hn::And(hn::Eq(a, a), hn::Eq(b, b));
    return hn::And(ordered, hn::Lt(hn::IfThenElseZero(ordered, a), hn::IfThenElseZero(ordered, b)));
#endif
}

template <class D>
struct Functions {
    using V = hn::Vec<D>;
    using Mask = hn::Mask<D>;
    using DI = hn::Repartition<std::uint64_t, D>;
    using VI = hn::Vec<DI>;

    static V exp(V x)
    {
        const Mask in_range = hn::And(less(set(-708.1), x), less(x, set(709.1)));
        if (hn::AllTrue(D(), in_range)) [[likely]] {
            const Exponential e = exponential(x);
            return with_exponent(e.fraction, e.exponent);
        }
        return exp_anywhere(x);
    }

    static V log(V x)
    {
        const Mask in_range = hn::And(less(set(LARGEST_SUBNORMAL), x), less(x, set(INFINITE)));
        if (hn::AllTrue(D(), in_range)) [[likely]]
            return log_of_normal(x, set(1023.0));
        return log_anywhere(x);
    }

    // atan(|x|) = base + atan(t) with t = |x|, (|x| - 1)/(|x| + 1) or -1/|x|, so that |t| <= 0.66. The bounds between them are
    // where the error of t is a small part of the last digit of the result. No argument is beyond any of them.
    static V atan(V x)
    {
        static constexpr double C[] = {-0x1.5555555555555p-2,
                                       0x1.9999999999881p-3,
                                       -0x1.2492492489adap-3,
                                       0x1.c71c71c323677p-4,
                                       -0x1.745d16bfa77edp-4,
                                       0x1.3b13a5f7ba936p-4,
                                       -0x1.11106c7c0b092p-4,
                                       0x1.e1d48af28b961p-5,
                                       -0x1.aec349e760889p-5,
                                       0x1.83dd57e42c14dp-5,
                                       -0x1.5aaeaa76c8666p-5,
                                       0x1.290c0c638c3bep-5,
                                       -0x1.c862ef97fc95p-6,
                                       0x1.1b11f2e03ebeap-6,
                                       -0x1.e38f058e983aap-8,
                                       0x1.9ca6a48b70ecdp-10};
        const V a = hn::Abs(x), one = set(1.0);
        const Mask medium = less(set(0.66), a), large = less(set(2.0), a);
        const V numerator = hn::IfThenElse(large, set(-1.0), hn::IfThenElse(medium, a - one, a));
        const V denominator = hn::IfThenElse(large, a, hn::IfThenElse(medium, a + one, one));
        const V t = numerator / denominator;
        const V base = hn::IfThenElseZero(medium, hn::IfThenElse(large, set(PI_2), set(PI_2 / 2)));
        const V z = t * t, z2 = z * z, z4 = z2 * z2;
        const V low = hn::MulAdd(four(z, z2, C + 4), z4, four(z, z2, C));
        const V high = hn::MulAdd(four(z, z2, C + 12), z4, four(z, z2, C + 8));
        const V tail =
            hn::MulAdd(t * z, hn::MulAdd(high, z4 * z4, low), base * set(PI_2_REST / PI_2));
        return hn::CopySignToAbs(base + (t + tail), x);
    }

private:
    static Mask less(V a, V b) { return VEMKN::less<D>(a, b); }

    static constexpr double INFINITE = __builtin_inf(), LARGEST_SUBNORMAL = 0x0.fffffffffffffp-1022;
    static constexpr double PI_2 = 0x1.921fb54442d18p+0, PI_2_REST = 0x1.1a62633145c07p-54;
    // Products of the first part of ln 2 with an exponent are exact.
    static constexpr double LN2 = 0x1.62e42ffp-1, LN2_REST = -0x1.718432a1b0e26p-35;
    // 1.5 * 2^52: a sum with it is a whole number, in the last bits.
    static constexpr double ROUNDER = 0x1.8p52;

    static V set(double a) { return hn::Set(D(), a); }

    static VI bits(std::uint64_t a) { return hn::Set(DI(), a); }

    static VI bits(V a) { return hn::BitCast(DI(), a); }

    static V number(VI a) { return hn::BitCast(D(), a); }

    // c[0] + c[1] x and c[0] + ... + c[3] x^3
    static V two(V x, const double* c) { return hn::MulAdd(set(c[1]), x, set(c[0])); }

    static V four(V x, V x2, const double* c) { return hn::MulAdd(two(x, c + 2), x2, two(x, c)); }

    // x where it is infinite or a NaN, which becomes quiet: a signaling one raises invalid.
    static V not_finite(V x)
    {
        const Mask is_finite = less(hn::Abs(x), set(INFINITE));
        return set(0.0) + hn::IfThenElse(is_finite, set(0.0), x);
    }

    // exp(x) = fraction * 2^exponent, the exponent a whole number in the last bits. Where |x| < 1000.
    struct Exponential {
        V fraction;
        VI exponent;
    };

    static Exponential exponential(V x)
    {
        // (exp(r) - 1 - r)/r^2 where |r| <= ln(2)/2
        static constexpr double C[] = {0x1.0000000000001p-1,
                                       0x1.5555555555558p-3,
                                       0x1.5555555553cc9p-5,
                                       0x1.111111110f8d3p-7,
                                       0x1.6c16c178b2ea7p-10,
                                       0x1.a01a01afbca51p-13,
                                       0x1.a019b8984cdabp-16,
                                       0x1.71ddf7750bed1p-19,
                                       0x1.2891f94a48395p-22,
                                       0x1.af61e67da9073p-26};
        const V rounded = hn::MulAdd(x, set(0x1.71547652b82fep+0), set(ROUNDER));
        const V n = rounded - set(ROUNDER);
        const V high = hn::NegMulAdd(n, set(LN2), x), low = n * set(-LN2_REST);
        const V r = high + low, r2 = r * r, r4 = r2 * r2;
        const V upper = hn::MulAdd(two(r, C + 8), r4, four(r, r2, C + 4));
        const V p = hn::MulAdd(upper, r4, four(r, r2, C));
        return {set(1.0) + (high + hn::MulAdd(r2, p, low)), bits(rounded)};
    }

    static V with_exponent(V fraction, VI exponent)
    {
        return number(bits(fraction) + hn::ShiftLeft<52>(exponent));
    }

    // Far out the power of two is taken in two steps, of which only the second leaves the range of normal numbers.
    [[gnu::noinline]] static V exp_anywhere(V x)
    {
        const V zero = set(0.0);
        const Mask is_finite = less(hn::Abs(x), set(INFINITE));
        const V clamped =
            hn::Min(hn::Max(hn::IfThenElse(is_finite, x, zero), set(-746.0)), set(710.0));
        const Mask high = less(set(709.0), clamped), low = less(clamped, set(-708.0));
        const V step =
            hn::IfThenElse(high, set(0x1p2), hn::IfThenElse(low, set(0x1p-64), set(1.0)));
        const Exponential e = exponential(clamped);
        const V y =
            with_exponent(e.fraction, e.exponent - hn::ShiftRight<52>(bits(step)) + bits(1023)) *
            step;
        // Infinities and NaN: a sum hands NaN on, quiet ones quietly.
        return hn::IfThenElse(is_finite, y, hn::IfThenElse(less(x, zero), zero, not_finite(x)));
    }

    // x = 2^k m with sqrt(1/2) <= m < sqrt(2), f = m - 1 exactly and s = f/(2 + f): log(m) = f - s (f - s^2 P(s^2)). `bias` is
    // that of the exponents of doubles, less what x was scaled by.
    static V log_of_normal(V x, V bias)
    {
        // (log((1 + s)/(1 - s)) - 2s)/s^3 in s^2, |s| <= 0.172
        static constexpr double C[] = {0x1.5555555555558p-1,
                                       0x1.999999999528ep-2,
                                       0x1.2492492e01479p-2,
                                       0x1.c71c62ce93b59p-3,
                                       0x1.7462bb6a69decp-3,
                                       0x1.39fd7ee584955p-3,
                                       0x1.2b631d1808f57p-3};
        constexpr std::uint64_t ONE = 0x3ff0000000000000, ROOT_OF_HALF = 0x3fe6a09e667f3bcd;
        constexpr std::uint64_t EXPONENT = 0xfff0000000000000, TWO_TO_52 = 0x4330000000000000;
        const VI shifted = bits(x) + bits(ONE - ROOT_OF_HALF);
        const V m = number(bits(x) - hn::And(shifted, bits(EXPONENT)) + bits(ONE));
        const V k =
            number(hn::Or(hn::ShiftRight<52>(shifted), bits(TWO_TO_52))) - set(0x1p52) - bias;
        const V f = m - set(1.0), s = f / (m + set(1.0)), z = s * s, z2 = z * z;
        const V upper = hn::MulAdd(set(C[6]), z2, two(z, C + 4));
        const V p = z * hn::MulAdd(upper, z2 * z2, four(z, z2, C));
        const V k_ln2 = k * set(LN2), high = k_ln2 + f, low = (k_ln2 - high) + f;
        return high + hn::NegMulAdd(s, f - p, hn::MulAdd(k, set(LN2_REST), low));
    }

    [[gnu::noinline]] static V log_anywhere(V x)
    {
        const V zero = set(0.0), one = set(1.0);
        const Mask is_zero = hn::Eq(x, zero), is_negative = less(x, zero);
        const Mask is_normal = hn::And(less(set(LARGEST_SUBNORMAL), x), less(x, set(INFINITE)));
        const Mask is_subnormal = hn::And(less(zero, x), less(x, set(DBL_MIN)));
        const V scaled =
            hn::IfThenElse(is_subnormal, x, one) * hn::IfThenElse(is_subnormal, set(0x1p54), one);
        const V bias = hn::IfThenElse(is_subnormal, set(1023.0 + 54.0), set(1023.0));
        V y = log_of_normal(hn::IfThenElse(is_normal, x, scaled), bias);
        y = hn::IfThenElse(hn::Or(is_normal, is_subnormal), y, not_finite(x));
        // A division by zero, and an invalid root.
        y = hn::IfThenElse(is_zero, set(-1.0) / hn::IfThenElse(is_zero, hn::Abs(x), one), y);
        return hn::IfThenElse(is_negative, hn::Sqrt(hn::IfThenElse(is_negative, x, one)), y);
    }
};

}  // namespace
}  // namespace VEMKN
