#pragma once

#include "fit/matrix.h"

// Scales of residuals that a part of the rows cannot spoil.

namespace vemknfit {

// The q-th quantile, 0 <= q <= 1, between the two nearest values by their distance. At least one value.
double quantile(const Vector& values, double q);

double median(const Vector& values);

// Median absolute deviation from the median, times what makes it the standard deviation of a Gaussian.
double mad(const Vector& values);

// Standard deviation of the Gaussian with the same distance of two quantiles: of the narrowest pair that are not one value, so that
// a column of mostly one value keeps the others apart. Zero where all are one.
double quantile_deviation(const Vector& values);

// M-scale by Tukey's bisquare: the s for which the mean of 1 - (1 - min(|r|/(k s), 1)^2)^3 is 1/2, with k such that it is the
// standard deviation of a Gaussian. Less than half of the rows, however far out, leave it bounded; zero where at least half of the
// residuals are zero. [Yohai, High breakdown-point and high efficiency robust estimates for regression, Ann. Statist. 15
// (1987) 642]
double m_scale(const Vector& residuals);

// Standard deviation of the rows within three scales: of a Gaussian that is cut there, made up for, as for `parameters` that
// these rows were fitted with. Begins with a scale and goes on with what it finds until it stands.
double inner_deviation(const Vector& residuals, double scale, double parameters);

}  // namespace vemknfit
