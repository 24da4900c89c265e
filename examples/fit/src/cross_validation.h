#ifndef VEMKN_FIT_CROSS_VALIDATION_H
#define VEMKN_FIT_CROSS_VALIDATION_H

#include "options.h"

namespace fit {

/** Fits the rows of all folds but one, for each of them, predicts its rows, and says how far off that is. The seed deals the rows
 * out to the folds.
 * @throw UserError */
void cross_validate(const Options& options);

}  // namespace fit

#endif
