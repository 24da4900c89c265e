#pragma once

#include "jacobian/derivative_calls.h"

// A problem for products with cotangents, and what its calls have to give.

// 2-3-2, numel = 3 + 6 + 2 + 6.
inline Problem problem(const char* activation = "softplus", const char* norm = "sum_log_dnorm_fat")
{
    return small_problem(2, 3, activation, norm);
}

// Complex steps are exact to rounding; numbers of the size of ten, in sums of up to fifty.
inline constexpr double TOLERANCE = 5000 * EPS;

inline plain::Reals plain_product(const Problem& p, const Numbers& u)
{
    return p.shape.weighted_gradient(
        p.w, p.x, p.y, p.nrows, p.xcols, plain::Reals(u.begin(), u.end()));
}

inline plain::Reals plain_residuals(const Problem& p)
{
    return p.shape.residuals(p.w, p.x, p.y, p.nrows, p.xcols);
}
