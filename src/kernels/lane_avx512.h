#pragma once

#include <immintrin.h>

#include "kernels/vector_math.h"

extern "C" {
__m512d _ZGVeN8v_exp(__m512d);
__m512d _ZGVeN8v_log(__m512d);
__m512d _ZGVeN8v_atan(__m512d);
}

namespace VEMKN {
namespace {

// Eight doubles; see kernels/lane.h.
struct Lane {
    using V = __m512d;
    using Mask = __mmask8;
    static constexpr int WIDTH = 8;

    static V set(double a) { return _mm512_set1_pd(a); }

    static V load(const double* p) { return _mm512_loadu_pd(p); }

    static void store(double* p, V v) { _mm512_storeu_pd(p, v); }

    static V load_part(const double* p, int n, V rest)
    {
        return _mm512_mask_loadu_pd(rest, first(n), p);
    }

    static Mask less(V a, V b) { return _mm512_cmp_pd_mask(a, b, _CMP_LT_OQ); }

    static Mask equal(V a, V b) { return _mm512_cmp_pd_mask(a, b, _CMP_EQ_OQ); }

    static Mask outside(V x, V low, V high)
    {
        return static_cast<Mask>(_mm512_cmp_pd_mask(x, low, _CMP_NGE_UQ) |
                                 _mm512_cmp_pd_mask(x, high, _CMP_NLE_UQ));
    }

    static bool any(Mask m) { return m != 0; }

    static bool any(Mask m, int lane) { return (m >> lane & 1) != 0; }

    static V select(Mask m, V a, V b) { return _mm512_mask_blend_pd(m, b, a); }

    static V abs(V a) { return _mm512_abs_pd(a); }

    static double sum(V a)
    {
        // Through memory, since GCC 12 warns of the undefined register that the extraction of a half starts from.
        alignas(64) double all[WIDTH];
        _mm512_store_pd(all, a);
        const __m256d four = _mm256_load_pd(all) + _mm256_load_pd(all + 4);
        const __m128d two = _mm256_castpd256_pd128(four) + _mm256_extractf128_pd(four, 1);
        return two[0] + two[1];
    }

    static V exp(V a) { return exp_of<Lane, _ZGVeN8v_exp>(a); }

    static V log(V a) { return log_of<Lane, _ZGVeN8v_log>(a); }

    static V atan(V a) { return atan_of<Lane, _ZGVeN8v_atan>(a); }

private:
    static Mask first(int n) { return static_cast<Mask>((1U << n) - 1U); }
};

}  // namespace
}  // namespace VEMKN
