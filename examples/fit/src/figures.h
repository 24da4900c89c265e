#ifndef VEMKN_FIT_FIGURES_H
#define VEMKN_FIT_FIGURES_H

#include <vector>

#include "fit.h"

namespace fit {

/// How well predictions meet one target on some rows.
struct Figures {
    double median_error = 0.0;  ///< median of |residual|, in units of the target
    double rms_error = 0.0;
    double bias = 0.0;      ///< median of the residuals: prediction minus target
    double outliers = 0.0;  ///< share of the rows with |residual| of six core scales and more
};

/// @param[in] cores  the core scale of each row's fit
Figures figures_of(const Vector& residuals, const Vector& cores);

/// Everything that one fit predicts, in the units of the targets; rows as in the file.
struct Predictions {
    Matrix values;
    Matrix residuals;                      ///< prediction minus target
    Eigen::Matrix<bool, -1, -1> outliers;  ///< where the likelihood has left its core
    std::vector<Figures> training;         ///< for each target
    std::vector<Figures> held_out;         ///< empty if no rows are held out
};

Predictions predict(const Problem& problem, const Network& network, const Vector& w);

}  // namespace fit

#endif
