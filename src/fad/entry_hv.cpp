#include "adjoint/objective.h"
#include "api/computing_call.h"
#include "api/refusals.h"
#include "api/work_model.h"
#include "jacobian/trace.h"

using namespace VEMKN;

int vemk_Hv(::VEMKNInfo* net,
            const double* w,
            unsigned nw,
            const double* v,
            unsigned nv,
            const double* x,
            const double* y,
            unsigned n,
            unsigned nin,
            unsigned nout,
            double* value,
            double* gradient,
            double* hv)
{
    const bool row_order = vemkn_rowmajor != 0;
    const Refusal refusal("vemk_Hv", net);
    if (refusal.normed_network() || refusal.weight_count(nw) || refusal.residuals(n, nout) ||
        refusal.directions(row_order, nw, nv)) {
        return REFUSED;
    }
    const yafad::Seeding seeding(row_order, nw, nv);
    const yafad::DirectionLock lock(seeding.directions());
    const auto factors = {InputArray{seeding.is_identity() ? nullptr : v, std::uint64_t{nw} * nv},
                          input_rows(*net, x, n, nin)};
    return computing_call(*net, w, factors, [&](Results& results) {
        const CarrierWorkModel model = with_tangents(*net, seeding, w, v);
        const InputRows X = network_input(model, x, n, nin);
        const InputRows Y(y, n, nout);
        Trace trace;
        CarrierWorkModel grad = zeros_like(model);
        const auto J = adj_objv(model, X, Y, CarrierWorkModel::SValue(1.0), grad);
        trace.finish();
        if (Trace::wanted()) trace.print(J.value);

        AlignedArray products;
        products.set_size(std::size_t{nw} * nv);
        for_each_parameter(grad, [&](const yafad::Bundle& part, std::size_t first) {
            seeding.put_derivatives(products.begin(), part, first, nw);
        });
        results.write(value, J.value);
        for_each_parameter(grad, [&](const yafad::Bundle& part, std::size_t first) {
            results.write(gradient == nullptr ? gradient : gradient + first, part.value);
        });
        results.write(hv, products);
    });
}
