#pragma once

#include <emmintrin.h>

#include "kernels/vector_math.h"

extern "C" {
__m128d _ZGVbN2v_exp(__m128d);
__m128d _ZGVbN2v_log(__m128d);
__m128d _ZGVbN2v_atan(__m128d);
}

namespace VEMKN {
namespace {

// Two doubles; see kernels/lane.h. A mask is all ones or all zeros in each.
struct Lane {
    using V = __m128d;
    using Mask = __m128d;
    static constexpr int WIDTH = 2;

    static V set(double a) { return _mm_set1_pd(a); }

    static V load(const double* p) { return _mm_loadu_pd(p); }

    static void store(double* p, V v) { _mm_storeu_pd(p, v); }

    // n is 1: the only part of a vector.
    static V load_part(const double* p, int, V rest) { return _mm_loadl_pd(rest, p); }

    // This instruction set compares quietly for order and equality only, so a NaN is set to zero before it is compared
    // for size.
    static Mask less(V a, V b)
    {
        const Mask ordered = _mm_cmpord_pd(a, b);
        return _mm_and_pd(ordered, _mm_cmplt_pd(_mm_and_pd(ordered, a), _mm_and_pd(ordered, b)));
    }

    static Mask equal(V a, V b) { return _mm_cmpeq_pd(a, b); }

    static Mask outside(V x, V low, V high)
    {
        const Mask ordered = _mm_cmpord_pd(x, x);
        const V number = _mm_and_pd(ordered, x);
        const Mask inside = _mm_and_pd(_mm_cmpge_pd(number, low), _mm_cmple_pd(number, high));
        return _mm_andnot_pd(_mm_and_pd(ordered, inside), _mm_cmpeq_pd(low, low));
    }

    static bool any(Mask m) { return _mm_movemask_pd(m) != 0; }

    static bool any(Mask m, int lane) { return (_mm_movemask_pd(m) >> lane & 1) != 0; }

    static V select(Mask m, V a, V b) { return _mm_or_pd(_mm_and_pd(m, a), _mm_andnot_pd(m, b)); }

    static V abs(V a) { return _mm_andnot_pd(set(-0.0), a); }

    static double sum(V a) { return a[0] + a[1]; }

    static V exp(V a) { return exp_of<Lane, _ZGVbN2v_exp>(a); }

    static V log(V a) { return log_of<Lane, _ZGVbN2v_log>(a); }

    static V atan(V a) { return atan_of<Lane, _ZGVbN2v_atan>(a); }
};

}  // namespace
}  // namespace VEMKN
