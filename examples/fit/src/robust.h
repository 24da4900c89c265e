#ifndef VEMKN_FIT_ROBUST_H
#define VEMKN_FIT_ROBUST_H

#include "fit.h"

namespace fit {

/** Robust regression of the one target on the training rows, as the file has them.
 * @throw UserError if no core is given and no scatter can be had of the targets */
Model robust_model(const Problem& problem, const Shape& shape, const FitOptions& options);

/** Robust regression (src/fit/robust_fit.h) of the one target on the training rows: core, shift and decay are found with the
 * weights, but for what the options give. The problem gets the scale of the target that goes with them.
 * @param[in] network  softplus or id, one output
 * @throw UserError if no core is given and no scatter can be had of the targets */
Fit run_robust_fit(Problem& problem, const Network& network, const FitOptions& options);

}  // namespace fit

#endif
