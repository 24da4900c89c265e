#include "api/computing_call.h"
#include "api/refusals.h"
#include "eval/forward.h"

using namespace VEMKN;

int vemk_compute(::VEMKNInfo* net,
                 const double* w,
                 unsigned nw,
                 const double* x,
                 unsigned nrows,
                 unsigned ncols,
                 uint64_t,
                 double* out)
{
    constexpr const char* NAME = "vemk_compute";
    const Batch batch{x, nullptr, nrows, ncols, 0};
    if (const auto why = unusable_network(net)) return refuse(NAME, why);
    if (w != nullptr) {
        if (const auto why = wrong_weight_count(net, nw)) return refuse(NAME, why);
    }
    if (const auto why = too_many("results", nrows, net->model.numout)) return refuse(NAME, why);
    const auto work = [&](const auto& model, const RowsView& X, const RowsView&, Results& results) {
        results.write(out, computev(model, X));
    };
    const Needs needs{.rows = rows_of_a_chunk(batch),
                      .of_an_output = 2,
                      .of_results = std::size_t{nrows} * net->model.numout};
    return computing_call(*net, w, batch, {}, needs, work);
}

int vemk_residual(::VEMKNInfo* net,
                  const double* w,
                  unsigned nw,
                  const double* x,
                  const double* y,
                  unsigned nrows,
                  unsigned xcols,
                  unsigned ycols,
                  double* out)
{
    const Batch batch{x, y, nrows, xcols, ycols};
    if (const auto why = unfit_for_residuals(net, count_of(w, nw), batch)) {
        return refuse("vemk_residual", why);
    }
    const auto work =
        [&](const auto& model, const RowsView& X, const RowsView& Y, Results& results) {
            WorkMatrix R = computev(model, X);
            subtract_rows(R, Y);
            results.write(out, R);
        };
    const Needs needs{
        .rows = rows_of_a_chunk(batch), .of_an_output = 2, .of_results = batch.elements()};
    return computing_call(*net, w, batch, {}, needs, work);
}
