#include "api/computing_call.h"
#include "api/refusals.h"
#include "jacobian/sweeps.h"
#include "runtime/trace.h"

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
    const Batch batch{x, y, nrows, xcols, ycols};
    if (const auto why = unfit_for_norms(net, nw, batch)) return refuse("vemk_vJ", why);
    const InputArray cotangent{u, batch.elements()};
    const auto work =
        [&](const auto& model, const RowsView& X, const RowsView& Y, Results& results) {
            const InputRows U(u, nrows, ycols);
            WorkMatrix R;
            WorkModel::Gradient grad = zeros_like(model);
            Trace trace;
            adj_residuals(model, X, Y, R, U, grad);
            trace.finish();
            if (Trace::wanted()) trace.print(mean_norm(model, R));

            results.write(r_out, R);
            results.write(g_out, grad);
        };
    Needs needs = needs_of_gradient(*net, batch);
    needs.of_results = batch.elements();
    return computing_call(*net, w, batch, cotangent, needs, work);
}
