#include "robust.h"

#include <chrono>

#include "escape.h"
#include "user_error.h"

namespace fit {
namespace {

[[noreturn]] void refuse(const Problem& problem, int code)
{
    const std::int64_t row = vemkn_fit_row();
    std::string message = vemkn_fit_message();
    if (row >= 0)
        message =
            "line " +
            std::to_string(problem.columns.lines[problem.training[static_cast<std::size_t>(row)]]) +
            " of the data: " + message;
    if (code == VEMKN_FIT_SCATTER) message += " by --core";
    throw UserError(message);
}

}  // namespace

Model robust_model(const Problem& problem, const Shape& shape, const FitOptions& options)
{
    const Matrix x = rows_of(problem.columns.inputs, problem.training);
    const Matrix y = rows_of(problem.columns.targets, problem.training);
    std::vector<std::string> names;
    for (const InputRule& rule : problem.inputs.rules()) names.push_back(visible(rule.name));
    std::vector<VEMKNFitColumn> columns;
    for (const InputRule& rule : problem.inputs.rules())
        columns.push_back({.name = names[columns.size()].c_str(),
                           .period = rule.period,
                           .centre = 0.0,
                           .spread = 0.0});
    const std::string target = visible(problem.columns.target_names.front());
    VEMKNFitOptions wanted{};
    wanted.size = sizeof wanted;
    wanted.hidden = shape.hidden.data();
    wanted.layers = shape.hidden.size();
    wanted.activation = shape.activation.c_str();
    wanted.core = options.core.value_or(0.0);
    if (options.decay) wanted.decay = *options.decay > 0.0 ? *options.decay : VEMKN_FIT_NO_DECAY;
    wanted.seed = options.seed;
    wanted.starts = static_cast<unsigned>(options.starts);
    wanted.threads = options.threads.count;
    wanted.columns = columns.data();
    wanted.target = target.c_str();
    VEMKNFit* fit = nullptr;
    const int code = vemkn_fit_robust(x.data(),
                                      static_cast<std::size_t>(x.rows()),
                                      static_cast<std::size_t>(x.cols()),
                                      y.data(),
                                      &wanted,
                                      &fit);
    if (code == VEMKN_FIT_DATA || code == VEMKN_FIT_SCATTER) refuse(problem, code);
    accept(code);
    return Model(fit);
}

Fit run_robust_fit(Problem& problem, const Network& network, const FitOptions& options)
{
    const auto begin = std::chrono::steady_clock::now();
    Fit fit;
    fit.model = robust_model(problem, network.shape(), options);
    const VEMKNFit* const model = fit.model.get();
    std::size_t count = 0;
    const double* const weights = vemkn_fit_weights(model, &count);
    fit.weights = Eigen::Map<const Vector>(weights, static_cast<Eigen::Index>(count));
    fit.decay = vemkn_fit_decay(model);
    set_targets(problem,
                {{{.core = vemkn_fit_core(model, 0), .shift = vemkn_fit_shift(model, 0)}}});
    fit.objective = network.value(fit.weights, problem.train);
    fit.validation =
        problem.held_out.empty() ? fit.objective : network.value(fit.weights, problem.validation);
    fit.gradient_norm = vemkn_fit_gradient(model) / static_cast<double>(problem.training.size());
    fit.starts = {{.objective = fit.objective,
                   .validation = fit.validation,
                   .ending = "best of " + std::to_string(options.starts) + " starts, " +
                             (vemkn_fit_settled(model) != 0 ? "settled" : "not quite settled"),
                   .counts = {}}};
    const std::chrono::duration<double> spent = std::chrono::steady_clock::now() - begin;
    fit.seconds = spent.count();
    return fit;
}

}  // namespace fit
