#include "fit/scatter.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <vector>

#include "fit/robust_scale.h"

namespace vemknfit {
namespace {

// From 1, less the mean of all.
Vector centred_ranks(const Vector& values)
{
    const Eigen::Index n = values.size();
    std::vector<Eigen::Index> order(static_cast<std::size_t>(n));
    std::iota(order.begin(), order.end(), Eigen::Index{0});
    std::sort(order.begin(), order.end(), [&](Eigen::Index i, Eigen::Index j) {
        return values[i] < values[j];
    });
    Vector ranks(n);
    for (auto first = order.begin(); first != order.end();) {
        const auto last = std::find_if(
            first, order.end(), [&](Eigen::Index i) { return values[i] != values[*first]; });
        const auto before = static_cast<double>(first - order.begin());
        const auto equal = static_cast<double>(last - first);
        for (; first != last; ++first) ranks[*first] = before + 0.5 * (equal + 1.0);
    }
    return ranks.array() - 0.5 * (static_cast<double>(n) + 1.0);
}

}  // namespace

double quantile_skewness(const Vector& values)
{
    constexpr double TAIL = 0.1;
    const double middle = median(values);
    const double above = quantile(values, 1.0 - TAIL) - middle;
    const double below = middle - quantile(values, TAIL);
    return above + below > 0.0 ? (above - below) / (above + below) : 0.0;
}

double rank_correlation(const Vector& a, const Vector& b)
{
    const Vector x = centred_ranks(a), y = centred_ranks(b);
    const double both = std::sqrt(x.squaredNorm()) * std::sqrt(y.squaredNorm());
    return both > 0.0 ? x.dot(y) / both : 0.0;
}

}  // namespace vemknfit
