#include "robust.h"

#include <chrono>

#include "fit/robust_fit.h"
#include "fit/target_scale.h"
#include "user_error.h"

namespace fit {
namespace {

vemknfit::Network network_of(const Shape& shape)
{
    return {static_cast<Eigen::Index>(shape.inputs), {shape.hidden.begin(), shape.hidden.end()}};
}

}  // namespace

Fit run_robust_fit(Problem& problem, const Network& network, const FitOptions& options)
{
    const auto begin = std::chrono::steady_clock::now();
    Vector y(problem.train.y.rows());
    for (Eigen::Index r = 0; r < y.size(); ++r)
        y[r] = problem.columns.targets(
            static_cast<Eigen::Index>(problem.training[static_cast<std::size_t>(r)]), 0);
    const vemknfit::TargetScale scale(y);
    if (scale.is_degenerate())
        throw UserError(
            "more than half of the targets are one value, so their scatter cannot be estimated: "
            "give it by --core, with --method lbfgs");
    const vemknfit::Network engine = network_of(network.shape());
    const vemknfit::Fit found = vemknfit::robust_fit(
        engine,
        problem.train.x,
        scale.apply(y),
        {.decay = options.decay, .starts = options.starts, .seed = options.seed});

    Fit fit;
    fit.weights = found.curve.w;
    fit.decay = found.decay;
    fit.penalty = vemknfit::penalty_of(engine, found.decay, found.curve.core);
    set_targets(problem,
                {{{.core = found.curve.core * scale.spread(),
                   .shift = scale.undo(Vector::Constant(1, found.curve.shift))[0]}}});
    Vector gradient;
    fit.objective = network.gradient(fit.weights, problem.train, gradient);
    fit.validation =
        problem.held_out.empty() ? fit.objective : network.value(fit.weights, problem.validation);
    const auto rows = static_cast<double>(problem.train.x.rows());
    fit.gradient_norm = (gradient + fit.penalty.cwiseProduct(fit.weights) / rows).norm();
    fit.starts = {{.objective = fit.objective,
                   .validation = fit.validation,
                   .ending = "best of " + std::to_string(options.starts) + " starts, " +
                             (found.is_settled ? "settled" : "not quite settled"),
                   .counts = {}}};
    const std::chrono::duration<double> spent = std::chrono::steady_clock::now() - begin;
    fit.seconds = spent.count();
    return fit;
}

}  // namespace fit
