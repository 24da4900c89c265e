#include "api/computing_call.h"
#include "api/refusals.h"
#include "api/work_model.h"
#include "eval/objective.h"

using namespace VEMKN;

int vemk_obj(::VEMKNInfo* net,
             const double* w,
             unsigned nw,
             const double* x,
             const double* y,
             unsigned n,
             unsigned nin,
             unsigned nout,
             double* result)
{
    const Refusal refusal("vemk_obj", net);
    if (refusal.normed_network() || refusal.weight_count(w, nw) || refusal.residuals(n, nout) ||
        refusal.empty_batch(n)) {
        return REFUSED;
    }
    const auto factors = {input_rows(*net, x, n, nin)};
    return computing_call(*net, w, factors, [&](Results& results) {
        const WorkModel model = with_weights(*net, w);
        const InputRows X = network_input(model, x, n, nin);
        const InputRows Y(y, n, nout);
        results.write(result, objv(model, X, Y));
    });
}

int vemk_objv(::VEMKNInfo* net,
              const double* w,
              unsigned nw,
              const double* x,
              const double* y,
              unsigned n,
              unsigned nin,
              unsigned nout,
              double* out)
{
    const Refusal refusal("vemk_objv", net);
    if (refusal.normed_network() || refusal.weight_count(w, nw) || refusal.residuals(n, nout)) {
        return REFUSED;
    }
    const auto factors = {input_rows(*net, x, n, nin)};
    return computing_call(*net, w, factors, [&](Results& results) {
        const WorkModel model = with_weights(*net, w);
        const InputRows X = network_input(model, x, n, nin);
        const InputRows Y(y, n, nout);
        AlignedArray values;
        values.set_size(std::size_t{n} * nout);
        element_norms(model, X, Y, [&](const AlignedArray& part, std::size_t first) {
            put_elements(values, first, part);
        });
        results.write(out, values);
    });
}
