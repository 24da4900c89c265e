#include "fit.h"

#include <chrono>
#include <memory>
#include <stdexcept>

#include "../../common/random.h"
#include "start.h"
#include "user_error.h"

namespace fit {
namespace {

std::string minimise(
    Method method, Objective& objective, const Vector& w, const StopRule& stop, Monitor& monitor)
{
    switch (method) {
        case Method::newton:
            return minimise_newton(dynamic_cast<NormObjective&>(objective), w, stop, monitor);
        case Method::gauss_newton:
            return minimise_gauss_newton(
                dynamic_cast<SquaresObjective&>(objective), w, stop, monitor);
        case Method::lbfgs:
            return minimise_lbfgs(objective, w, stop, monitor);
        case Method::robust:
            break;
    }
    throw std::logic_error("a robust fit is the engine's");
}

/// Each start draws from its own sequence, so adding starts leaves the earlier ones as they are.
Vector draw_start(const Problem& problem,
                  const Network& network,
                  const Guard& guard,
                  std::uint64_t seed,
                  int start)
{
    Random random(seed * 1000003U + static_cast<std::uint64_t>(start) + 1U);
    Vector w = starting_weights(network, problem.train, random);
    // Far-out inputs or very wide layers: smaller weights are as good a start.
    for (int tries = 0; tries < 200 && guard.load(w) > 0.5; ++tries) w *= 0.9;
    if (!guard.safe(w)) throw UserError("the inputs are too large for this network");
    return w;
}

}  // namespace

std::unique_ptr<Objective> make_objective(Method method,
                                          const Network& network,
                                          const Batch& batch,
                                          const Guard& guard)
{
    if (method == Method::gauss_newton)
        return std::make_unique<SquaresObjective>(network, batch, guard);
    return std::make_unique<NormObjective>(network, batch, guard);
}

Fit run_fit(const Problem& problem,
            const Network& network,
            const FitOptions& options,
            Progress& progress)
{
    const Guard guard = problem.guard(network.shape());
    const auto held_out = make_objective(options.method, network, problem.validation, guard);
    std::function<double(const Vector&)> validation;
    if (problem.validation.x.rows() > 0)
        validation = [&](const Vector& w) { return held_out->value(w); };

    Fit fit;
    const auto begin = std::chrono::steady_clock::now();
    for (int start = 0; start < options.starts; ++start) {
        const auto objective = make_objective(options.method, network, problem.train, guard);
        Monitor monitor(validation, options.patience, progress);
        progress.begin("start " + std::to_string(start + 1) + "/" + std::to_string(options.starts),
                       options.stop.max_evaluations);
        const Vector w = draw_start(problem, network, guard, options.seed, start);
        StartResult result;
        result.ending = minimise(options.method, *objective, w, options.stop, monitor);
        progress.end();
        result.objective = monitor.best_objective();
        result.validation = monitor.best_validation();
        result.counts = objective->counts;
        fit.counts += objective->counts;
        if (start == 0 || result.validation < fit.validation) {
            fit.best = static_cast<std::size_t>(start);
            fit.weights = monitor.best();
            fit.objective = result.objective;
            fit.validation = result.validation;
        }
        fit.starts.push_back(std::move(result));
    }
    const std::chrono::duration<double> spent = std::chrono::steady_clock::now() - begin;
    fit.seconds = spent.count();
    Vector gradient;
    make_objective(options.method, network, problem.train, guard)->gradient(fit.weights, gradient);
    fit.gradient_norm = gradient.norm();
    return fit;
}

}  // namespace fit
