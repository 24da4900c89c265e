#include "statistics.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

namespace fit {

double quantile(const Eigen::VectorXd& values, double q)
{
    if (values.size() == 0) return std::numeric_limits<double>::quiet_NaN();
    std::vector<double> sorted(values.begin(), values.end());
    const double position = q * static_cast<double>(sorted.size() - 1);
    const auto below = static_cast<std::ptrdiff_t>(std::floor(position));
    std::nth_element(sorted.begin(), sorted.begin() + below, sorted.end());
    const double low = sorted[static_cast<std::size_t>(below)];
    const double part = position - std::floor(position);
    if (part == 0.0) return low;
    const double high = *std::min_element(sorted.begin() + below + 1, sorted.end());
    return low + part * (high - low);
}

double median(const Eigen::VectorXd& values)
{
    return quantile(values, 0.5);
}

double mad_scale(const Eigen::VectorXd& values)
{
    const double to_gaussian = 1.482602218505602;  // 1 / the upper quartile of a standard normal
    return to_gaussian * median((values.array() - median(values)).abs().matrix());
}

double standard_deviation(const Eigen::VectorXd& values)
{
    if (values.size() == 0) return 0.0;
    const double mean = values.mean();
    return std::sqrt((values.array() - mean).square().mean());
}

}  // namespace fit
