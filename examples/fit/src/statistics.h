#ifndef VEMKN_FIT_STATISTICS_H
#define VEMKN_FIT_STATISTICS_H

#include <Eigen/Core>

namespace fit {

/// @param[in] q  0 ... 1; linear interpolation between the order statistics
/// @return NaN for no values
double quantile(const Eigen::VectorXd& values, double q);

double median(const Eigen::VectorXd& values);

/// The median absolute deviation from the median, scaled to the standard deviation of a Gaussian.
double mad_scale(const Eigen::VectorXd& values);

double standard_deviation(const Eigen::VectorXd& values);

}  // namespace fit

#endif
