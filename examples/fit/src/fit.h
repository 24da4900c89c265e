#ifndef VEMKN_FIT_FIT_H
#define VEMKN_FIT_FIT_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "library.h"
#include "minimise.h"
#include "problem.h"

namespace fit {

enum class Method { lbfgs, newton, gauss_newton, robust };

struct FitOptions {
    Method method = Method::lbfgs;
    std::string norm = "sum_log_dnorm_fat";
    Threads threads;
    std::uint64_t seed = 1;
    int starts = 3;
    std::optional<double> core;   ///< for Method::robust; estimated without one
    std::optional<double> decay;  ///< likewise; chosen by cross-validation without one
    int patience = 50;
    StopRule stop;
};

/// What one start came to.
struct StartResult {
    double objective = 0.0;
    double validation = 0.0;  ///< equals the objective if no rows are held out
    std::string ending;
    Counts counts;
};

struct Fit {
    Model model;  ///< of a robust fit
    Vector weights;
    double objective = 0.0;
    double validation = 0.0;
    double gradient_norm = 0.0;
    std::optional<double> decay;  ///< of a penalised fit
    std::vector<StartResult> starts;
    std::size_t best = 0;  ///< index of the start that the weights come from
    Counts counts;         ///< of all starts
    double seconds = 0.0;
};

/// The objective that a method minimises, on any rows; the referred-to objects must outlive it.
std::unique_ptr<Objective> make_objective(Method method,
                                          const Network& network,
                                          const Batch& batch,
                                          const Guard& guard);

/// Minimises from every start and keeps what does best on the held-out rows, or else in training.
Fit run_fit(const Problem& problem,
            const Network& network,
            const FitOptions& options,
            Progress& progress);

}  // namespace fit

#endif
