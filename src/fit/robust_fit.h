#pragma once

#include <cstdint>
#include <optional>

#include "fit/curve_fit.h"

namespace vemknfit {

struct FitSettings {
    // Of weights, in units of the summed negative log-likelihood; without one it is chosen by cross-validation (fit/decay.h).
    std::optional<double> decay{};
    // That counts as normal scatter, in units of the TargetScale; without one it is estimated.
    std::optional<double> core{};
    int starts = 3;
    std::uint64_t seed = 1;
    Watch* watch = nullptr;
};

struct Fit {
    Curve curve;
    double decay;
    bool is_settled;  // as Settled::stands; else the best that was found
};

// Rows as a fit takes them: multiples of 2^-30, so that data in other units, a + b y or a + b x, whose last bits differ after
// scaling, go the same way to the same curve; and targets further out than 1e6 spreads as so far out.
struct FittedRows {
    Matrix inputs;
    Vector y;

    FittedRows(const Matrix& all_inputs, const Vector& all_y);
};

// Robust regression of y, one number for each row of the inputs, in units of its TargetScale: an MM-estimate over a ladder of
// cores. Of one start:
//   1. a fit with a core so wide that it is close to least squares;
//   2. concentration steps as in fast LTS: the 55 % of rows with the smallest residuals, refitted, six times [Rousseeuw & Van
//      Driessen, Computing LTS regression for large data sets, Data Min. Knowl. Discov. 12 (2006) 29];
//   3. from both, cores halved step by step, each fit from the one before. Every rung is a candidate.
// The candidates of all starts are compared by the M-scale of their residuals, made up for the weights that they took, never by the
// likelihood, which prefers a wide core to many outliers. The best few are fitted again with the core that their own residuals give,
// and the best of them is settled.
//
// The search takes, of many rows, some.
//
// At least two rows, finite inputs and targets, a start or more, a decay from 0 on, a core above 0: throws std::invalid_argument.
// Throws Cancelled where the watch wants that.
Fit robust_fit(const Network& network,
               const Matrix& inputs,
               const Vector& y,
               const FitSettings& settings);

}  // namespace vemknfit
