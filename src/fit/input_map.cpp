#include "fit/input_map.h"

#include <cmath>

#include "fit/robust_scale.h"

namespace vemknfit {
namespace {

// Half of the standard deviation of a Gaussian with the same distance of two quantiles: of the narrowest pair that are not one
// value, so that a column of mostly one value keeps the others apart.
double half_spread(const Vector& half)
{
    struct Pair {
        double below,
            gaussian;  // the lower quantile, and how far apart the two are in a standard normal
    };

    constexpr Pair PAIRS[] = {
        {0.25, 1.3489795003921634}, {0.1, 2.5631031310892007}, {0.02, 4.1074978241056}, {0.0, 5.0}};
    for (const Pair& pair : PAIRS) {
        const double distance = quantile(half, 1.0 - pair.below) - quantile(half, pair.below);
        if (distance > 0.0) return distance / pair.gaussian;
    }
    return 1.0;
}

}  // namespace

InputMap::InputMap(const Matrix& columns)
    : half_centre_(columns.cols()), half_spread_(columns.cols())
{
    for (Eigen::Index c = 0; c < columns.cols(); ++c) {
        const Vector half = 0.5 * columns.col(c);
        half_centre_[c] = median(half);
        half_spread_[c] = half_spread(half);
    }
}

double InputMap::scaled(double x, Eigen::Index column) const
{
    return (0.5 * x - half_centre_[column]) / half_spread_[column];
}

Matrix InputMap::apply(const Matrix& columns) const
{
    Matrix inputs(columns.rows(), columns.cols());
    for (Eigen::Index r = 0; r < columns.rows(); ++r) {
        for (Eigen::Index c = 0; c < columns.cols(); ++c) {
            const double z = scaled(columns(r, c), c), beyond = std::abs(z) - BEND;
            const double bent = BEND + ROOM * -std::expm1(-beyond / ROOM);
            inputs(r, c) = beyond <= 0.0 ? z : std::copysign(bent, z);
        }
    }
    return inputs;
}

Rows InputMap::far_out(const Matrix& columns) const
{
    Rows rows;
    for (Eigen::Index r = 0; r < columns.rows(); ++r) {
        for (Eigen::Index c = 0; c < columns.cols(); ++c) {
            if (std::abs(scaled(columns(r, c), c)) <= BEND) continue;
            rows.push_back(r);
            break;
        }
    }
    return rows;
}

}  // namespace vemknfit
