#include "fit/loss.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace vemknfit {
namespace {

constexpr double JUMP = 2.0;
constexpr double TAIL_SCALE = 0.0004785973257525766;
constexpr double OF_NO_RESIDUAL = 0.17967375546343706;  // log of the density of the core at 0

double tail_slope(double residual)
{
    return 2.0 * residual / (residual * residual + TAIL_SCALE * TAIL_SCALE);
}

}  // namespace

Side side_of(double residual)
{
    return std::abs(residual) < JUMP ? Side::core : Side::tail;
}

double loss(double residual, Side side)
{
    if (side == Side::core) return 0.5 * CORE_CURVATURE * residual * residual;
    const double size = std::max(std::abs(residual), JUMP);
    const double tail = OF_NO_RESIDUAL + std::log(std::numbers::pi / TAIL_SCALE) +
                        2.0 * std::log(std::hypot(size, TAIL_SCALE));
    if (std::abs(residual) >= JUMP) return tail;
    return tail + 0.5 * tail_slope(JUMP) / JUMP * (residual * residual - JUMP * JUMP);
}

double loss_slope(double residual, Side side)
{
    if (side == Side::core) return CORE_CURVATURE * residual;
    if (std::abs(residual) >= JUMP) return tail_slope(residual);
    return tail_slope(JUMP) / JUMP * residual;
}

}  // namespace vemknfit
