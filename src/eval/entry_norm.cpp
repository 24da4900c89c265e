#include "api/computing_call.h"
#include "api/refusals.h"
#include "eval/objective.h"

using namespace VEMKN;

int vemk_norm(::VEMKNInfo* net, const double* r, unsigned a, unsigned b, double* result)
{
    const Refusal refusal("vemk_norm", net);
    if (refusal.null_handle() || refusal.norm() || refusal.too_many("elements", a, b)) {
        return REFUSED;
    }
    return computing_call(*net, [&](Results& results) {
        MatrixTemplate<double> R(a, b);
        R.store() = input_vector(r, R.size());
        results.write(result, R.size() == 0 ? 0.0 : mean_norm(net->model, R));
    });
}

int vemk_logp(::VEMKNInfo* net, const double* x, unsigned n, double* out)
{
    const Refusal refusal("vemk_logp", net);
    if (refusal.null_handle() || refusal.norm()) return REFUSED;
    return computing_call(*net, [&](Results& results) {
        MatrixTemplate<double> R(n, 1);
        R.store() = input_vector(x, n);
        std::valarray<double> values(n);
        net->model.element_norm.forward(R, values);
        results.write(out, values);
    });
}
