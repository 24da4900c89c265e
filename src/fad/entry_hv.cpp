#include "adjoint/objective.h"
#include "api/computing_call.h"
#include "api/refusals.h"
#include "fad/tangent_counts.h"
#include "runtime/trace.h"

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
    const Batch batch{x, y, n, nin, nout};
    if (const auto why = unfit_for_norms(net, nw, batch)) return refuse("vemk_Hv", why);
    if (const auto why = wrong_tangents(row_order, nw, nv)) return refuse("vemk_Hv", why);
    const yafad::Seeding seeding(row_order, nw, nv);
    const InputArray tangents{seeding.is_identity() ? nullptr : v, std::uint64_t{nw} * nv};
    const auto make_model = [&] { return with_tangents(*net, seeding, w, v); };
    const auto work =
        [&](const auto& model, const RowsView& X, const RowsView& Y, Results& results) {
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
        };
    const auto hold = [&] { return yafad::TangentLock(seeding.tangents()); };
    const std::size_t numbers = 1 + seeding.tangents();
    Needs needs = needs_of_gradient(*net, batch, numbers);
    needs.of_a_parameter += numbers;  // the model with tangents
    needs.of_results = std::size_t{nw} * nv;
    return computing_call(*net, w, batch, tangents, needs, hold, make_model, work);
}
