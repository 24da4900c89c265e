#include "adjoint/objective.h"
#include "api/computing_call.h"
#include "api/refusals.h"

using namespace VEMKN;

int vemk_g(::VEMKNInfo* net,
           const double* w,
           unsigned nw,
           const double* x,
           const double* y,
           unsigned n,
           unsigned nin,
           unsigned nout,
           double* value,
           double* gradient)
{
    const Batch batch{x, y, n, nin, nout};
    if (const auto why = unfit_for_norms(net, nw, batch)) return refuse("vemk_g", why);
    if (const auto why = empty_batch(batch)) return refuse("vemk_g", why);
    const auto work =
        [&](const auto& model, const RowsView& X, const RowsView& Y, Results& results) {
            WorkModel::Gradient grad = zeros_like(model);
            const double objective = adj_objv(model, X, Y, 1.0, grad);

            results.write(value, objective);
            results.write(gradient, grad);
        };
    return computing_call(*net, w, batch, {}, needs_of_gradient(*net, batch), work);
}
