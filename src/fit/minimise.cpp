#include "fit/minimise.h"

#include <nlopt.h>

#include <cmath>
#include <exception>
#include <limits>
#include <memory>
#include <new>

namespace vemknfit {
namespace {

struct Destroy {
    void operator()(nlopt_opt optimiser) const { nlopt_destroy(optimiser); }
};

using Optimiser = std::unique_ptr<std::remove_pointer_t<nlopt_opt>, Destroy>;

// What NLopt's callback works with; an exception waits here until the C code has been left.
struct Search {
    const Objective& objective;
    nlopt_opt optimiser;
    int evaluations = 0;
    double lowest = std::numeric_limits<double>::infinity();
    double highest = 0.0;
    Vector lowest_at{}, gradient{};
    std::exception_ptr failure{};
};

double evaluate(Search& search, const Vector& w, double* gradient)
{
    ++search.evaluations;
    double value = search.objective.value(w, search.gradient);
    if (std::isfinite(value) && search.gradient.allFinite()) {
        search.highest = std::max(search.highest, value);
        if (value < search.lowest) {
            search.lowest = value;
            search.lowest_at = w;
        }
    } else {
        // A step that went too far: higher than all seen, and the way back is down. Finite, and of the size of the others, since
        // the line search interpolates with it.
        value = 2.0 * search.highest + 1.0;
        search.gradient = value / std::max(w.squaredNorm(), 1e-300) * w;
    }
    if (gradient != nullptr) Eigen::Map<Vector>(gradient, w.size()) = search.gradient;
    return value;
}

double callback(unsigned n, const double* w, double* gradient, void* data)
{
    Search& search = *static_cast<Search*>(data);
    try {
        return evaluate(search, Eigen::Map<const Vector>(w, n), gradient);
    } catch (...) {
        search.failure = std::current_exception();
        nlopt_force_stop(search.optimiser);
        return search.highest;
    }
}

}  // namespace

Vector minimise(const Objective& objective, Vector w, const StopRule& stop)
{
    constexpr double WORTH_A_NEW_SEARCH = 1e-4;
    const Optimiser optimiser(nlopt_create(NLOPT_LD_LBFGS, static_cast<unsigned>(w.size())));
    if (!optimiser) throw std::bad_alloc();
    Search search{.objective = objective, .optimiser = optimiser.get()};
    nlopt_set_min_objective(optimiser.get(), callback, &search);
    nlopt_set_ftol_rel(optimiser.get(), stop.tolerance);
    nlopt_set_vector_storage(optimiser.get(), stop.memory);
    while (search.evaluations < stop.evaluations) {
        nlopt_set_maxeval(optimiser.get(), stop.evaluations - search.evaluations);
        const double before = search.lowest;
        double value = 0.0;
        const nlopt_result result = nlopt_optimize(optimiser.get(), w.data(), &value);
        if (search.failure) std::rethrow_exception(search.failure);
        if (result == NLOPT_OUT_OF_MEMORY) throw std::bad_alloc();
        if (search.lowest_at.size() == 0) break;  // not one finite value
        w = search.lowest_at;
        if (!(before - search.lowest > WORTH_A_NEW_SEARCH * search.lowest)) break;
    }
    return w;
}

}  // namespace vemknfit
