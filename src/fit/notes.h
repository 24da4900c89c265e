#pragma once

#include <string>
#include <vector>

#include "fit/input_map.h"
#include "fit/model.h"
#include "fit/robust_fit.h"
#include "fit/robust_model.h"

// What a person should know before trusting a fit, a sentence each.

namespace vemknfit {

// What the data have to say, apart from the fit.
void note_data(const InputMap& map,
               const Matrix& columns,
               const RobustOptions& options,
               const Network& network,
               std::vector<std::string>& notes);

void note_fit(const Fit& fit, const RobustOptions& options, Summary& summary, Eigen::Index rows);

// Whether the rows within six cores scatter as one core takes them to: alike on both sides, and everywhere as far. Both are
// noted where they are four standard deviations of what Gaussian scatter shows, and large enough to matter.
void note_scatter(const CurveFit& rows, const Curve& curve, std::vector<std::string>& notes);

void note_uncertainty(const Uncertainty& uncertainty,
                      Eigen::Index rows,
                      std::vector<std::string>& notes);

}  // namespace vemknfit
