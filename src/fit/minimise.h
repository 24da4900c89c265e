#pragma once

#include "fit/objective.h"

namespace vemknfit {

struct StopRule {
    int evaluations;   // at most
    double tolerance;  // gain of a step, in parts of the objective, below which a search ends
    // Steps that curvature is learnt from; 0: all, which takes fewer of them to the last digits, and more time than they save before.
    unsigned memory = 40;
};

// The lowest point that L-BFGS finds from w on. The likelihood jumps where a residual leaves its core: a line search that meets
// the jump ends, and curvature that was measured across it is worthless, so the search begins anew from its lowest point for as
// long as that gains anything.
Vector minimise(const Objective& objective, Vector w, const StopRule& stop);

}  // namespace vemknfit
