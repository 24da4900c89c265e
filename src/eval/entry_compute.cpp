#include "api/computing_call.h"
#include "api/refusals.h"
#include "api/work_model.h"
#include "eval/objective.h"

using namespace VEMKN;

int vemk_compute(::VEMKNInfo* net,
                 const double* w,
                 unsigned nw,
                 const double* x,
                 unsigned nrows,
                 unsigned ncols,
                 uint64_t,
                 double* out)
{
    const Refusal refusal("vemk_compute", net);
    if (refusal.network() || refusal.weight_count(w, nw) ||
        refusal.too_many("results", nrows, net->model.numout)) {
        return REFUSED;
    }
    const auto factors = {input_rows(*net, x, nrows, ncols)};
    return computing_call(*net, w, factors, [&](Results& results) {
        const WorkModel model = with_weights(*net, w);
        const InputRows X = network_input(model, x, nrows, ncols);
        results.write(out, computev(model, X));
    });
}

int vemk_residual(::VEMKNInfo* net,
                  const double* w,
                  unsigned nw,
                  const double* x,
                  const double* y,
                  unsigned nrows,
                  unsigned xcols,
                  unsigned ycols,
                  double* out)
{
    const Refusal refusal("vemk_residual", net);
    if (refusal.network() || refusal.weight_count(w, nw) || refusal.residuals(nrows, ycols)) {
        return REFUSED;
    }
    const auto factors = {input_rows(*net, x, nrows, xcols)};
    return computing_call(*net, w, factors, [&](Results& results) {
        const WorkModel model = with_weights(*net, w);
        const InputRows X = network_input(model, x, nrows, xcols);
        const InputRows Y(y, nrows, ycols);
        WorkMatrix R = computev(model, X);
        subtract_rows(R, Y);
        results.write(out, R);
    });
}
