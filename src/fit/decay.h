#pragma once

#include <cstdint>

#include "fit/curve_fit.h"

namespace vemknfit {

// The largest decay, of a grid, whose curves predict rows that they were not fitted to as well as the best of it, within one
// standard error: ten folds from the seed, of many rows fewer, and a bounded loss of the rows held out. Curves of all rows begin with each other, from `found` on, a curve at the decay `at`.
// The fits of a fold take their core, and leave their outliers out, but begin anew, so that they know nothing of the rows held out.
struct Decay {
    double decay;
    Curve curve;  // of all rows
};

Decay chosen_decay(const CurveFit& fit, const Curve& found, double at, std::uint64_t seed);

}  // namespace vemknfit
