#ifndef VEMKN_FIT_MODEL_H
#define VEMKN_FIT_MODEL_H

#include <string>

#include "options.h"
#include "problem.h"

namespace fit {

/** A fit as the text of a model file (docs/model.md). Columns have the names that visible() shows.
 * @throw UserError for a name that is not UTF-8 */
std::string model_text(const Problem& problem, const Options& options, const Fit& fit);

}  // namespace fit

#endif
