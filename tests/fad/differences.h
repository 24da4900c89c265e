#pragma once

#include <cmath>

// Derivatives by differences in long double: a truth that knows no formula of a derivative.

// f'(x) from the six neighbours at distances h, 2h and 3h. With h = 2^-9 max(1, |x|) the terms left out are
// h^6/140 f^(7), below 1e-16 of what occurs here, and rounding makes about 2*2^-64 |f|/h, below 1e-16 |f|: together no
// more than the last place of a double.
// Functions that change faster take a smaller step, 2^exponent: halving h makes the first error 64 times as small and
// the second twice as large.
template <class Function>
auto derivative(const Function& f, long double x, int exponent = -9)
{
    const long double h = std::ldexp(std::fmax(1.0L, std::fabs(x)), exponent);
    // The distance that really separates the points.
    const volatile long double next = x + h;
    const long double step = next - x;
    using Result = decltype(f(x));
    const auto pair = [&](int i) { return Result(f(x + i * step) - f(x - i * step)); };
    return Result((45.0L * pair(1) - 9.0L * pair(2) + pair(3)) / (60 * step));
}
