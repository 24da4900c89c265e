#include "api/computing_call.h"
#include "api/refusals.h"
#include "eval/objective.h"

using namespace VEMKN;

namespace {

// A copy of rows x cols numbers, or zeros in place of a null pointer.
WorkMatrix input_matrix(const double* data, std::size_t rows, std::size_t cols)
{
    if (data != nullptr) return {data, rows, cols};
    WorkMatrix zeros;
    set_zero(zeros, rows, cols);
    return zeros;
}

// work(model, R, results) for a call that runs no network, with a copy R of its rows x cols numbers.
template <class Work>
int call_of_norm(
    const VEMKNInfo& net, const double* data, std::size_t rows, std::size_t cols, const Work& work)
{
    const Needs needs{.of_results = 2 * rows * cols};
    return framed_call(net, Enters::nothing, block_sizes(net, needs), [&](Results& results) {
        work(work_model<WorkModel>(net), input_matrix(data, rows, cols), results);
    });
}

}  // namespace

int vemk_norm(::VEMKNInfo* net, const double* r, unsigned a, unsigned b, double* result)
{
    if (const auto why = no_handle(net)) return refuse("vemk_norm", why);
    if (const auto why = no_norm(net)) return refuse("vemk_norm", why);
    if (const auto why = too_many("elements", a, b)) return refuse("vemk_norm", why);
    const auto work = [&](const WorkModel& model, const WorkMatrix& R, Results& results) {
        results.write(result, R.size() == 0 ? 0.0 : mean_norm(model, R));
    };
    return call_of_norm(*net, r, a, b, work);
}

int vemk_logp(::VEMKNInfo* net, const double* x, unsigned n, double* out)
{
    if (const auto why = no_handle(net)) return refuse("vemk_logp", why);
    if (const auto why = no_norm(net)) return refuse("vemk_logp", why);
    const auto work = [&](const WorkModel& model, const WorkMatrix& X, Results& results) {
        AlignedArray values;
        element_norm(model, X, values);
        results.write(out, values);
    };
    return call_of_norm(*net, x, n, 1, work);
}
