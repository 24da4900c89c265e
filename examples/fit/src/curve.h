#ifndef VEMKN_FIT_CURVE_H
#define VEMKN_FIT_CURVE_H

#include <string>

#include "problem.h"
#include "uncertainty.h"

namespace fit {

/// What the fit says along one input column, averaged over what the other columns hold in the data.
struct Curve {
    Vector x;       ///< grid over the column's range
    Matrix fit;     ///< a column for each target, in its units
    Matrix errors;  ///< standard errors of the averages; empty without a Laplace
};

/// Medians of the targets in slices of a column's range, to see a curve against.
struct Medians {
    Vector x;
    Matrix targets;
};

/// @param[in] laplace  null: no errors
Curve average_curve(const Problem& problem,
                    const Network& plain,
                    const Vector& w,
                    Eigen::Index column,
                    const Laplace* laplace);

Medians sliced_medians(const Problem& problem, Eigen::Index column);

}  // namespace fit

#endif
