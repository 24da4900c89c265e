#pragma once

// What a residual costs, in the units of the likelihood, whose core has the standard deviation 1/3: the negative logarithm of
// its density, less that of a residual of zero. The two sides of the jump at 2 apart, so that a minimiser may keep a row on the
// side where it stands. The core goes on beyond the jump; the tail goes on as a parabola within, where its density has a spike
// that would hold a row fast.

namespace vemknfit {

enum class Side : char { core, tail };

// Where the library puts it.
Side side_of(double residual);

double loss(double residual, Side side);

// d loss / d residual
double loss_slope(double residual, Side side);

// The second derivative in the core.
inline constexpr double CORE_CURVATURE = 9.0;

}  // namespace vemknfit
