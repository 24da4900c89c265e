#ifndef VEMKN_FIT_REPORT_H
#define VEMKN_FIT_REPORT_H

#include <optional>
#include <string>

#include "figures.h"
#include "options.h"
#include "uncertainty.h"

namespace fit {

/// A fit with what it predicts.
struct Judged {
    Fit fit;
    Predictions predictions;
};

struct Results {
    Judged main;
    std::optional<Judged> least_squares;
    std::optional<Laplace> laplace;
    Matrix errors;  ///< standard errors of the predictions, in units of the targets; may be empty
};

/// What the data and the network are; printed before the fit begins.
std::string describe_problem(const Problem& problem, const Options& options, const Shape& shape);

/// The outcome, for people.
std::string describe_results(const Problem& problem,
                             const Options& options,
                             const Results& results);

/// The outcome as lines of key=value.
std::string summary(const Problem& problem,
                    const Options& options,
                    const Network& network,
                    const Results& results);

/// Every row with its inputs, and for each target the columns that predictions_per_target() counts.
std::string predictions_csv(const Problem& problem, const Results& results);
Eigen::Index predictions_per_target(const Results& results);

/// The network's description, the two scalings as comments, and the weights in flat order.
std::string weights_text(const Problem& problem, const Network& network, const Vector& w);

}  // namespace fit

#endif
