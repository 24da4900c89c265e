#include <nlopt.h>

#include <algorithm>
#include <cmath>
#include <exception>
#include <limits>
#include <memory>
#include <stdexcept>
#include <type_traits>

#include "minimise.h"

namespace fit {
namespace {

struct Destroy {
    void operator()(nlopt_opt optimiser) const { nlopt_destroy(optimiser); }
};

using Optimiser = std::unique_ptr<std::remove_pointer_t<nlopt_opt>, Destroy>;

/// What NLopt's callback needs; exceptions wait here until the C code has been left.
struct State {
    Objective& objective;
    Monitor& monitor;
    nlopt_opt optimiser;
    Vector lowest_at{};
    double lowest = std::numeric_limits<double>::infinity();
    double highest = 0.0;
    std::exception_ptr failure{};
};

/** A refused step gets a value above all seen, and a slope that leads back. It is finite and of the
 * size of the others because the line search interpolates with it. */
double refuse(State& state, const Vector& w, double* gradient)
{
    ++state.objective.counts.refused;
    const double value = 2.0 * std::abs(state.highest) + 1.0;
    if (gradient) Eigen::Map<Vector>(gradient, w.size()) = (value / w.squaredNorm()) * w;
    return value;
}

double evaluate(State& state, const Vector& w, double* gradient)
{
    Objective& objective = state.objective;
    if (!w.allFinite()) throw std::runtime_error("the line search left the finite numbers");
    if (!objective.guard().safe(w)) return refuse(state, w, gradient);
    Vector slope;
    const double value = objective.gradient(w, slope);
    if (gradient) Eigen::Map<Vector>(gradient, w.size()) = slope;
    state.highest = std::max(state.highest, std::abs(value));
    if (value < state.lowest) {
        state.lowest = value;
        state.lowest_at = w;
        if (!state.monitor.improved(w, value, objective.counts.total()))
            nlopt_force_stop(state.optimiser);
    }
    return value;
}

double callback(unsigned n, const double* w, double* gradient, void* data)
{
    State& state = *static_cast<State*>(data);
    try {
        return evaluate(state, Eigen::Map<const Vector>(w, n), gradient);
    } catch (...) {
        state.failure = std::current_exception();
        nlopt_force_stop(state.optimiser);
        if (gradient) Eigen::Map<Vector>(gradient, n).setZero();
        return std::numeric_limits<double>::max();
    }
}

std::string ending(nlopt_result result)
{
    switch (result) {
        case NLOPT_FORCED_STOP:
            return "held-out error no longer falls";
        case NLOPT_MAXEVAL_REACHED:
            return "evaluation limit";
        case NLOPT_FAILURE:  // the line search found nothing lower
        case NLOPT_ROUNDOFF_LIMITED:
            return "no lower point along the line";
        case NLOPT_OUT_OF_MEMORY:
            throw std::bad_alloc();
        case NLOPT_INVALID_ARGS:
            throw std::logic_error("NLopt refuses its arguments");
        default:
            return "converged";
    }
}

}  // namespace

// The likelihood jumps where a residual leaves its core. A line search that meets such a jump ends
// NLopt's run, and curvature measured across one is worthless, so the search begins anew from the
// lowest point, with an empty memory, for as long as that gains anything worth having.
std::string minimise_lbfgs(Objective& objective, Vector w, const StopRule& stop, Monitor& monitor)
{
    const Optimiser optimiser(nlopt_create(NLOPT_LD_LBFGS, static_cast<unsigned>(w.size())));
    if (!optimiser) throw std::bad_alloc();
    State state{.objective = objective, .monitor = monitor, .optimiser = optimiser.get()};
    nlopt_set_min_objective(optimiser.get(), callback, &state);
    nlopt_set_ftol_rel(optimiser.get(), stop.tolerance);
    while (true) {
        const std::size_t spent = objective.counts.total() + objective.counts.refused;
        if (spent >= stop.max_evaluations) return ending(NLOPT_MAXEVAL_REACHED);
        nlopt_set_maxeval(optimiser.get(), static_cast<int>(stop.max_evaluations - spent));
        const double before = state.lowest;
        double lowest = 0.0;
        const nlopt_result result = nlopt_optimize(optimiser.get(), w.data(), &lowest);
        if (state.failure) std::rethrow_exception(state.failure);
        const double gain = before - state.lowest;
        if (result == NLOPT_FORCED_STOP || result == NLOPT_MAXEVAL_REACHED) return ending(result);
        const double worth = 1e-4;
        // Nothing gained on an objective of 0 is not worth having either.
        if (!(gain > worth * std::abs(state.lowest))) return ending(result);
        w = state.lowest_at;
    }
}

}  // namespace fit
