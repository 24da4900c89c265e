#pragma once

#include "fit/matrix.h"

// How residuals deviate from scatter that is alike everywhere.

namespace vemknfit {

// How much further the upper tenth lies from the median than the lower one, as a share of the distance of both: 0 of symmetric
// numbers, from -1 to 1. [Hinkley, On power transformations to symmetry, Biometrika 62 (1975) 101] 0 where both are one value.
double quantile_skewness(const Vector& values);

// Its standard deviation of n Gaussian numbers is this / sqrt(n), from the covariance of sample quantiles.
inline constexpr double GAUSSIAN_SKEWNESS_DEVIATION = 1.037;

// Spearman's, with the mean rank of equal values: from -1 to 1, with deviation 1 / sqrt(n - 1) of numbers that have nothing to do
// with each other. 0 where either is one value.
double rank_correlation(const Vector& a, const Vector& b);

}  // namespace vemknfit
