#ifndef VEMKN_FIT_MINIMISE_H
#define VEMKN_FIT_MINIMISE_H

#include <cstddef>
#include <string>

#include "monitor.h"
#include "objective.h"

namespace fit {

struct StopRule {
    std::size_t max_evaluations = 5000;  ///< calls on the training rows
    double tolerance = 1e-7;             ///< smallest relative change of the objective worth a step
};

/* Each minimiser starts from [w], hands every new lowest point to the monitor, which keeps the best
 * one, and returns in a few words why it ended. The start must be safe for the objective's guard. */

/// NLopt's limited-memory BFGS.
std::string minimise_lbfgs(Objective& objective, Vector w, const StopRule& stop, Monitor& monitor);

/// Truncated Newton: conjugate gradients on exact products with the Hessian, in a trust region.
std::string minimise_newton(NormObjective& objective,
                            Vector w,
                            const StopRule& stop,
                            Monitor& monitor);

/// Levenberg and Marquardt's damped Gauss-Newton.
std::string minimise_gauss_newton(SquaresObjective& objective,
                                  Vector w,
                                  const StopRule& stop,
                                  Monitor& monitor);

}  // namespace fit

#endif
