#include "figures.h"

#include <cmath>

#include "statistics.h"

namespace fit {
namespace {

constexpr double core_scales_of_outlier = 6.0;

}  // namespace

Figures figures_of(const Vector& residuals, const Vector& cores)
{
    Figures figures;
    figures.median_error = median(residuals.cwiseAbs());
    figures.rms_error = std::sqrt(residuals.squaredNorm() / static_cast<double>(residuals.size()));
    figures.bias = median(residuals);
    const auto beyond = (residuals.array().abs() >= core_scales_of_outlier * cores.array()).count();
    figures.outliers = static_cast<double>(beyond) / static_cast<double>(residuals.size());
    return figures;
}

Predictions predict(const Problem& problem, const Network& network, const Vector& w)
{
    Predictions result;
    result.values = problem.targets.undo(network.outputs(w, problem.all.x));
    result.residuals = result.values - problem.columns.targets;
    result.outliers.resize(result.residuals.rows(), result.residuals.cols());
    for (Eigen::Index t = 0; t < result.residuals.cols(); ++t) {
        const double core = problem.targets.scales[static_cast<std::size_t>(t)].core;
        result.outliers.col(t) =
            result.residuals.col(t).array().abs() >= core_scales_of_outlier * core;
        const auto figures_of_rows = [&](const std::vector<std::size_t>& rows) {
            const Vector residuals = rows_of(result.residuals, rows).col(t);
            return figures_of(residuals, Vector::Constant(residuals.size(), core));
        };
        result.training.push_back(figures_of_rows(problem.training));
        if (!problem.held_out.empty()) result.held_out.push_back(figures_of_rows(problem.held_out));
    }
    return result;
}

}  // namespace fit
