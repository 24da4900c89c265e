#pragma once

#include <cfloat>
#include <cmath>

// The elementary functions of a vector lane type: the vector functions of the maths library where those are safe, its
// scalar ones for the lanes beyond. Internal linkage, since every instruction set compiles its own.

namespace VEMKN {
namespace {

// Vector(x) where low <= x <= high, Scalar(x) in the lanes elsewhere, NaN among them.
template <class L, auto Vector, auto Scalar>
[[gnu::always_inline]] inline typename L::V with_fallback(typename L::V x, double low, double high)
{
    using V = typename L::V;
    const auto outside = L::outside(x, L::set(low), L::set(high));
    if (!L::any(outside)) [[likely]]
        return Vector(x);

    // 1.0 is harmless to each of the functions.
    const V y = Vector(L::select(outside, L::set(1.0), x));
    alignas(sizeof(V)) double arguments[L::WIDTH], results[L::WIDTH];
    L::store(arguments, x);
    L::store(results, y);
    for (int i = 0; i < L::WIDTH; ++i) {
        if (L::any(outside, i)) results[i] = Scalar(arguments[i]);
    }
    return L::load(results);
}

template <class L, auto Vector>
[[gnu::always_inline]] inline typename L::V exp_of(typename L::V x)
{
    // Results from the smallest normal number to below the largest.
    return with_fallback<L, Vector, static_cast<double (*)(double)>(::exp)>(x, -708.0, 709.0);
}

template <class L, auto Vector>
[[gnu::always_inline]] inline typename L::V log_of(typename L::V x)
{
    return with_fallback<L, Vector, static_cast<double (*)(double)>(::log)>(x, DBL_MIN, DBL_MAX);
}

template <class L, auto Vector>
[[gnu::always_inline]] inline typename L::V atan_of(typename L::V x)
{
    // Far inside of where any variant squares its argument to infinity.
    return with_fallback<L, Vector, static_cast<double (*)(double)>(::atan)>(x, -1e100, 1e100);
}

}  // namespace
}  // namespace VEMKN
