#include "api/computing_call.h"
#include "api/refusals.h"
#include "api/work_model.h"
#include "jacobian/sweeps.h"
#include "jacobian/trace.h"

using namespace VEMKN;

int vemk_vJ(::VEMKNInfo* net,
            const double* w,
            unsigned nw,
            const double* u,
            uint64_t,
            const double* x,
            const double* y,
            unsigned nrows,
            unsigned xcols,
            unsigned ycols,
            double* r_out,
            double* g_out)
{
    const Refusal refusal("vemk_vJ", net);
    if (refusal.normed_network() || refusal.weight_count(nw) || refusal.residuals(nrows, ycols)) {
        return REFUSED;
    }
    const auto factors = {InputArray{u, std::uint64_t{nrows} * ycols},
                          input_rows(*net, x, nrows, xcols)};
    return computing_call(*net, w, factors, [&](Results& results) {
        const WorkModel model = with_weights(*net, w);
        const InputRows X = network_input(model, x, nrows, xcols);
        const InputRows Y(y, nrows, ycols);
        const InputRows U(u, nrows, ycols);
        WorkMatrix R;
        WorkModel grad = zeros_like(model);
        Trace trace;
        adj_residuals(model, X, Y, R, U, grad);
        trace.finish();
        if (Trace::wanted()) trace.print(mean_norm(model, R));

        results.write(r_out, R);
        results.write(g_out, grad);
    });
}
