#include "api/computing_call.h"
#include "api/refusals.h"
#include "eval/objective.h"
#include "fad/tangent_counts.h"
#include "runtime/trace.h"

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
    const Batch batch{x, y, nrows, xcols, ycols};
    if (const auto why = unfit_for_norms(net, nw, batch)) return refuse("vemk_Jv", why);
    if (const auto why = wrong_tangents(row_order, nw, nv)) return refuse("vemk_Jv", why);
    if (const auto why = too_many("derivatives", batch.elements(), nv))
        return refuse("vemk_Jv", why);
    const yafad::Seeding seeding(row_order, nw, nv);
    const InputArray tangents{seeding.is_identity() ? nullptr : v, std::uint64_t{nw} * nv};
    const auto make_model = [&] { return with_tangents(*net, seeding, w, v); };
    const auto work =
        [&](const auto& model, const RowsView& X, const RowsView& Y, Results& results) {
            const bool traced = Trace::wanted();
            yafad::Bundle normed;  // for the trace's mean, which takes all tangents along
            if (traced) set_zero(normed, nrows, ycols);
            Trace trace;
            WorkMatrix values(nrows, ycols);
            AlignedArray derivatives;
            derivatives.set_size(batch.elements() * nv);
            element_norms(model, X, Y, [&](const yafad::Bundle& part, std::size_t first_row) {
                put_rows(values, first_row, part.value);
                const std::size_t first = first_row * ycols;
                seeding.put_derivatives(derivatives.begin(), part, first, batch.elements());
                if (traced) put_rows(normed, first_row, part);
            });
            trace.finish();
            // Deliberate: the summing norm acts on values that are element-normed already.
            if (traced) trace.print(mean_norm(model, normed).value);

            results.write(f, values);
            results.write(jac, derivatives);
        };
    const auto hold = [&] { return yafad::TangentLock(seeding.tangents()); };
    const std::size_t numbers = 1 + seeding.tangents();
    const Needs needs{.rows = rows_of_a_piece(*net, batch, numbers),
                      .of_an_output = 2 * numbers,
                      .of_a_parameter = numbers,
                      .of_results = batch.elements() * (1 + std::size_t{nv})};
    return computing_call(*net, w, batch, tangents, needs, hold, make_model, work);
}
