#pragma once

#include <cstdint>

#include "fit/curve_fit.h"

namespace vemknfit {

// Weights of a size that suits each layer's width, and an output bias that brings the median of the outputs to that of the
// targets: with all rows in the tails nothing would pull. The core is 1, nearly that of least squares.
Curve random_start(const CurveFit& fit, std::uint64_t seed, std::uint32_t stream);

// The best curve from so many random starts: steps 1 to 3 of robust_fit(), and the best of the few that were fitted again.
Curve found_curve(const CurveFit& fit, int starts, std::uint64_t seed);

}  // namespace vemknfit
