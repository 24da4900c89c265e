#ifndef VEMKN_FIT_MODEL_H
#define VEMKN_FIT_MODEL_H

#include <string>

#include "options.h"
#include "problem.h"

namespace fit {

/// All that predictions of new rows need.
struct Model {
    Shape shape;
    InputMap inputs;
    std::vector<std::string> target_names;
    TargetMap targets;
    Vector weights;

    /// @param[in] inputs  columns in the order of the rules; @return a column for each target
    Matrix predict(const Matrix& inputs) const;
};

/** A fit as the text of a model file, JSON: no time, host or path, every number to the last bit. Columns have the names that
 * visible() shows. examples/fit/README.md describes the format. */
std::string model_text(const Problem& problem,
                       const Options& options,
                       const Network& network,
                       const Fit& fit);

/** @param[in] name  of the file, for messages
 * @throw UserError for any text that is no model which this version can use */
Model model_from(const std::string& text, const std::string& name);

}  // namespace fit

#endif
