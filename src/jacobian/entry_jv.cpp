#include "api/computing_call.h"
#include "api/refusals.h"
#include "api/work_model.h"
#include "eval/objective.h"
#include "jacobian/trace.h"

using namespace VEMKN;

int vemk_Jv(::VEMKNInfo* net,
            const double* w,
            unsigned nw,
            const double* v,
            unsigned nv,
            const double* x,
            const double* y,
            unsigned nrows,
            unsigned xcols,
            unsigned ycols,
            double* f,
            double* jac)
{
    const bool row_order = vemkn_rowmajor != 0;
    const Refusal refusal("vemk_Jv", net);
    if (refusal.normed_network() || refusal.weight_count(nw) || refusal.residuals(nrows, ycols) ||
        refusal.directions(row_order, nw, nv)) {
        return REFUSED;
    }
    const yafad::Seeding seeding(row_order, nw, nv);
    const yafad::DirectionLock lock(seeding.directions());
    const auto factors = {InputArray{seeding.is_identity() ? nullptr : v, std::uint64_t{nw} * nv},
                          input_rows(*net, x, nrows, xcols)};
    return computing_call(*net, w, factors, [&](Results& results) {
        const CarrierWorkModel model = with_tangents(*net, seeding, w, v);
        const InputRows X = network_input(model, x, nrows, xcols);
        const InputRows Y(y, nrows, ycols);
        Trace trace;
        const std::size_t elements = std::size_t{nrows} * ycols;
        WorkMatrix values(nrows, ycols);
        AlignedArray derivatives;
        derivatives.set_size(elements * nv);
        element_norms(model, X, Y, [&](const yafad::Bundle& part, std::size_t first) {
            put_elements(values.store(), first, part.value);
            seeding.put_derivatives(derivatives.begin(), part, first, elements);
        });
        trace.finish();
        // Deliberate: the summing norm acts on values that are element-normed already.
        if (Trace::wanted()) {
            yafad::Bundle normed;
            set_zero(normed, nrows, ycols);
            normed.value = values;
            trace.print(mean_norm(model, normed).value);
        }

        results.write(f, values);
        results.write(jac, derivatives);
    });
}
