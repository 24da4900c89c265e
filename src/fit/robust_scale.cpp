#include "fit/robust_scale.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace vemknfit {

double quantile(const Vector& values, double q)
{
    std::vector<double> sorted(values.begin(), values.end());
    const double position = q * static_cast<double>(sorted.size() - 1);
    const double below = std::floor(position), part = position - below;
    const auto at = sorted.begin() + static_cast<std::ptrdiff_t>(below);
    std::nth_element(sorted.begin(), at, sorted.end());
    if (part == 0.0) return *at;
    // Not low + part*(high - low), whose difference may overflow.
    return (1.0 - part) * *at + part * *std::min_element(at + 1, sorted.end());
}

double median(const Vector& values)
{
    return quantile(values, 0.5);
}

double mad(const Vector& values)
{
    constexpr double TO_GAUSSIAN =
        1.482602218505602;  // 1 / the upper quartile of a standard normal
    return TO_GAUSSIAN * median((values.array() - median(values)).abs().matrix());
}

double quantile_deviation(const Vector& values)
{
    struct Pair {
        double below,
            gaussian;  // the lower quantile, and how far apart the two are in a standard normal
    };

    constexpr Pair PAIRS[] = {
        {0.25, 1.3489795003921634}, {0.1, 2.5631031310892007}, {0.02, 4.1074978241056}, {0.0, 5.0}};
    for (const Pair& pair : PAIRS) {
        const double distance = quantile(values, 1.0 - pair.below) - quantile(values, pair.below);
        if (distance > 0.0) return distance / pair.gaussian;
    }
    return 0.0;
}

double m_scale(const Vector& residuals)
{
    constexpr double K = 1.547645, ACCURACY = 1e-9;
    constexpr int MOST_STEPS = 200;
    const Vector size = residuals.cwiseAbs();
    double scale = 1.4826 * median(size);
    for (int step = 0; step < MOST_STEPS && scale > 0.0; ++step) {
        const auto u = (size.array() / (K * scale)).min(1.0);
        const double mean = (1.0 - (1.0 - u.square()).cube()).mean();
        const double next = scale * std::sqrt(2.0 * mean);
        const bool stands = std::abs(next - scale) <= ACCURACY * scale;
        scale = next;
        if (stands) break;
    }
    return scale;
}

double inner_deviation(const Vector& residuals, double scale, double parameters)
{
    constexpr double WITHIN = 3.0;
    // Variance of a standard normal that is cut at 3: 1 - 6 phi(3) / (2 Phi(3) - 1).
    constexpr double OF_CUT_GAUSSIAN = 0.9733369246625415;
    constexpr int MOST_STEPS = 50;
    const auto square = residuals.array().square();
    for (int step = 0; step < MOST_STEPS; ++step) {
        const auto inside = (residuals.array().abs() <= WITHIN * scale).eval();
        const auto rows = static_cast<double>(inside.count());
        const double left = std::max(rows - parameters, 0.5 * rows);
        if (left == 0.0) break;
        const double next = std::sqrt(inside.select(square, 0.0).sum() / left / OF_CUT_GAUSSIAN);
        if (next == scale) break;
        scale = next;
    }
    return scale;
}

}  // namespace vemknfit
