#include "fit/notes.h"

#include <algorithm>
#include <cmath>

#include "fit/scatter.h"

namespace vemknfit {
namespace {

std::string percent(double share)
{
    return std::to_string(std::lround(100.0 * share)) + " %";
}

}  // namespace

void note_data(const InputMap& map,
               const Matrix& columns,
               const RobustOptions& options,
               const Network& network,
               std::vector<std::string>& notes)
{
    for (Eigen::Index c = 0; c < columns.cols(); ++c) {
        const std::string& name = map.rules()[static_cast<std::size_t>(c)].name;
        if (columns.col(c).minCoeff() == columns.col(c).maxCoeff())
            notes.push_back("column '" + name + "' holds one value only");
    }
    const Rows far = map.far_out(columns);
    if (!far.empty())
        notes.push_back(std::to_string(far.size()) +
                        " rows have an input far from the others, which is bounded; the first is "
                        "row " +
                        std::to_string(far.front() + 1));
    if (network.size() > columns.rows() && !options.decay)
        notes.push_back("the network has more weights than there are rows, " +
                        std::to_string(network.size()) +
                        ", so the decay that was chosen may be too small: take fewer units, or "
                        "decay 3");
}

void note_fit(const Fit& fit, const RobustOptions& options, Summary& summary, Eigen::Index rows)
{
    constexpr double MANY = 0.3, LEAST_CORE = 0.00201;
    std::vector<std::string>& notes = summary.notes;
    const double beyond = static_cast<double>(summary.beyond) / static_cast<double>(rows);
    if (beyond > MANY)
        notes.push_back(percent(beyond) +
                        " of the rows lie beyond six cores: outliers, or scatter that varies");
    if (!options.core && fit.curve.core < LEAST_CORE)
        notes.push_back("the curve goes through most rows, so the core is the least that is taken");
    if (!fit.is_settled)
        notes.push_back(
            "not quite settled: the curve is not at a minimum to its standard errors, or its core "
            "is "
            "not that of its residuals");
}

void note_scatter(const CurveFit& rows, const Curve& curve, std::vector<std::string>& notes)
{
    constexpr double CERTAIN = 4.0, LARGE = 0.2;
    const Vector all = rows.residuals(curve), fitted = rows.y() - all;
    Rows inside;
    for (Eigen::Index r = 0; r < all.size(); ++r)
        if (std::abs(all[r]) < OUTLIER * curve.core) inside.push_back(r);
    if (inside.size() < 20) return;
    const Vector residuals = all(inside);
    const double root = std::sqrt(static_cast<double>(inside.size()));

    const double skewness = quantile_skewness(residuals);
    if (std::abs(skewness) > std::max(LARGE, CERTAIN * GAUSSIAN_SKEWNESS_DEVIATION / root)) {
        const bool above = skewness > 0.0;
        notes.push_back(std::string("the scatter reaches further ") + (above ? "above" : "below") +
                        " the curve than " + (above ? "below" : "above") +
                        " it, so the curve is not the median, and intervals of new rows end too "
                        "soon there: perhaps "
                        "fit the logarithm");
    }
    const double growth = rank_correlation(residuals.cwiseAbs(), fitted(inside));
    if (std::abs(growth) > std::max(LARGE, CERTAIN / root))
        notes.push_back(std::string("the scatter ") + (growth > 0.0 ? "grows" : "falls") +
                        " with the fitted value, so one core is too large at one end and too small "
                        "at the other, and "
                        "so are intervals of new rows: perhaps fit the logarithm");
}

void note_uncertainty(const Uncertainty& uncertainty,
                      Eigen::Index rows,
                      std::vector<std::string>& notes)
{
    constexpr double MANY = 0.5;
    if (uncertainty.covariance.size() == 0) {
        notes.push_back(uncertainty.why_none);
    } else if (uncertainty.parameters > MANY * static_cast<double>(rows)) {
        notes.push_back("the curve takes " + std::to_string(std::lround(uncertainty.parameters)) +
                        " parameters of " + std::to_string(rows) +
                        " rows, more than half: take fewer units or a larger decay");
    }
}

}  // namespace vemknfit
