#ifndef VEMKN_FIT_PLOT_H
#define VEMKN_FIT_PLOT_H

#include <filesystem>
#include <optional>
#include <string>

#include "curve.h"

namespace fit {

struct PlotContent {
    Eigen::Index column = 0;  ///< the input column along the x axis
    Curve fit;
    std::optional<Curve> least_squares;
    Medians medians;
    std::string fit_name;  ///< what the legend calls the fit
};

/// x, and for each target the fit, its 95 % band and the least-squares fit, as far as there are any.
std::string curve_csv(const Problem& problem, const PlotContent& content);

std::string medians_csv(const Problem& problem, const PlotContent& content);

/** A gnuplot script that draws plot.png from predictions.csv, curve.csv and medians.csv beside it:
 * for each target all data above, and a close-up of the curves below.
 * @param[in] first_column   the place of the first target in predictions.csv, from 1
 * @param[in] target_stride  columns that each target has there */
std::string plot_script(const Problem& problem,
                        const PlotContent& content,
                        Eigen::Index first_column,
                        Eigen::Index target_stride);

/// Runs gnuplot in [folder] on a script there.
/// @return empty, or in a few words why there is no plot
std::string run_gnuplot(const std::filesystem::path& folder, const std::string& script);

}  // namespace fit

#endif
