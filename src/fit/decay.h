#pragma once

#include <cstdint>

#include "fit/curve_fit.h"

namespace vemknfit {

// The decay, of a grid, whose curves predict rows best that they were not fitted to: ten folds from the seed, of many rows fewer,
// and a bounded loss of the rows held out. Curves of all rows begin with each other, from `found` on, a curve at the decay `at`.
// The fits of a fold take their core, and leave their outliers out, but begin anew, so that they know nothing of the rows held out.
struct Decay {
    double decay;
    Curve curve;  // of all rows
};

Decay chosen_decay(const CurveFit& fit, const Curve& found, double at, std::uint64_t seed);

}  // namespace vemknfit
