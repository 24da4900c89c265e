#include "adjoint/objective.h"
#include "api/computing_call.h"
#include "api/refusals.h"
#include "api/work_model.h"

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
    const Refusal refusal("vemk_g", net);
    if (refusal.normed_network() || refusal.weight_count(nw) || refusal.residuals(n, nout) ||
        refusal.empty_batch(n)) {
        return REFUSED;
    }
    const auto factors = {input_rows(*net, x, n, nin)};
    return computing_call(*net, w, factors, [&](Results& results) {
        const WorkModel model = with_weights(*net, w);
        const InputRows X = network_input(model, x, n, nin);
        const InputRows Y(y, n, nout);
        WorkModel grad = zeros_like(model);
        const double objective = adj_objv(model, X, Y, 1.0, grad);

        results.write(value, objective);
        results.write(gradient, grad);
    });
}
