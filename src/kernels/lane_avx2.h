#pragma once

#include <immintrin.h>

#include "kernels/vector_math.h"

extern "C" {
__m256d _ZGVdN4v_exp(__m256d);
__m256d _ZGVdN4v_log(__m256d);
__m256d _ZGVdN4v_atan(__m256d);
}

namespace VEMKN {
namespace {

// Four doubles; see kernels/lane.h. A mask is all ones or all zeros in each.
struct Lane {
    using V = __m256d;
    using Mask = __m256d;
    static constexpr int WIDTH = 4;

    static V set(double a) { return _mm256_set1_pd(a); }

    static V load(const double* p) { return _mm256_loadu_pd(p); }

    static void store(double* p, V v) { _mm256_storeu_pd(p, v); }

    static V load_part(const double* p, int n, V rest)
    {
        const __m256i part = first(n);
        return _mm256_blendv_pd(rest, _mm256_maskload_pd(p, part), _mm256_castsi256_pd(part));
    }

    static Mask less(V a, V b) { return _mm256_cmp_pd(a, b, _CMP_LT_OQ); }

    static Mask equal(V a, V b) { return _mm256_cmp_pd(a, b, _CMP_EQ_OQ); }

    static Mask outside(V x, V low, V high)
    {
        return _mm256_or_pd(_mm256_cmp_pd(x, low, _CMP_NGE_UQ),
                            _mm256_cmp_pd(x, high, _CMP_NLE_UQ));
    }

    static bool any(Mask m) { return _mm256_movemask_pd(m) != 0; }

    static bool any(Mask m, int lane) { return (_mm256_movemask_pd(m) >> lane & 1) != 0; }

    static V select(Mask m, V a, V b) { return _mm256_blendv_pd(b, a, m); }

    static V abs(V a) { return _mm256_andnot_pd(set(-0.0), a); }

    static double sum(V a)
    {
        const __m128d two = _mm256_castpd256_pd128(a) + _mm256_extractf128_pd(a, 1);
        return two[0] + two[1];
    }

    static V exp(V a) { return exp_of<Lane, _ZGVdN4v_exp>(a); }

    static V log(V a) { return log_of<Lane, _ZGVdN4v_log>(a); }

    static V atan(V a) { return atan_of<Lane, _ZGVdN4v_atan>(a); }

private:
    // All ones in the first n doubles.
    static __m256i first(int n)
    {
        return _mm256_cmpgt_epi64(_mm256_set1_epi64x(n), _mm256_set_epi64x(3, 2, 1, 0));
    }
};

}  // namespace
}  // namespace VEMKN
