#include "api/computing_call.h"
#include "api/refusals.h"
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
    const Batch batch{x, y, n, nin, nout};
    if (const auto why = unfit_for_norms(net, count_of(w, nw), batch))
        return refuse("vemk_obj", why);
    if (const auto why = empty_batch(batch)) return refuse("vemk_obj", why);
    const auto work =
        [&](const auto& model, const RowsView& X, const RowsView& Y, Results& results) {
            results.write(result, objv(model, X, Y));
        };
    const Needs needs{.rows = rows_together(*net, batch, EVALUATED_FOR_AN_OUTPUT),
                      .of_an_output = 2};
    return computing_call(*net, w, batch, {}, needs, work);
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
    const Batch batch{x, y, n, nin, nout};
    if (const auto why = unfit_for_norms(net, count_of(w, nw), batch))
        return refuse("vemk_objv", why);
    const auto work =
        [&](const auto& model, const RowsView& X, const RowsView& Y, Results& results) {
            AlignedArray values;
            values.set_size(batch.elements());
            element_norms(model, X, Y, [&](const AlignedArray& part, std::size_t first_row) {
                put_elements(values, first_row * batch.ycols, part);
            });
            results.write(out, values);
        };
    const Needs needs{
        .rows = rows_of_a_piece(*net, batch, 1), .of_an_output = 2, .of_results = batch.elements()};
    return computing_call(*net, w, batch, {}, needs, work);
}
