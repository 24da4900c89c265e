#include "api/computing_call.h"
#include "api/refusals.h"
#include "jacobian/sweeps.h"
#include "runtime/trace.h"

using namespace VEMKN;

int vemk_vJ_vec(::VEMKNInfo* net,
                const double* w,
                unsigned nw,
                const double* u,
                unsigned k,
                const double* x,
                const double* y,
                unsigned nrows,
                unsigned xcols,
                unsigned ycols,
                double* r_out,
                double* g_out)
{
    const Batch batch{x, y, nrows, xcols, ycols};
    if (const auto why = unfit_for_norms(net, nw, batch)) return refuse("vemk_vJ_vec", why);
    if (const auto why = too_many("weighting values", nrows, ycols, k)) {
        return refuse("vemk_vJ_vec", why);
    }
    if (const auto why = too_many("gradient entries", k, nw)) return refuse("vemk_vJ_vec", why);
    const InputArray all_cotangents{u, k * std::uint64_t{batch.elements()}};
    const auto work =
        [&](const auto& model, const RowsView& X, const RowsView& Y, Results& results) {
            const InputRows U(u, std::size_t{k} * nrows, ycols);
            CallList<RowsView> cotangents(k);
            for (std::size_t i = 0; i < k; ++i) cotangents[i] = RowsView(U).slice(i * nrows, nrows);
            WorkMatrix R;
            const CotangentGroups groups = cotangent_groups(model, k);
            CallList<CotangentsModel::Gradient> grads;
            Trace trace;
            adj_computev_vec(model, X, Y, R, cotangents, groups, grads);
            trace.finish();
            if (Trace::wanted()) trace.print(mean_norm(model, R));

            results.write(r_out, R);
            for (std::size_t g = 0; g < groups.count(); ++g) {
                for (std::size_t i = groups.begin(g); i < groups.end(g); ++i) {
                    double* const out = g_out == nullptr ? g_out : g_out + i * nw;
                    results.write(out, grads[g], i - groups.begin(g));
                }
            }
        };
    const std::size_t together = cotangent_groups(net->model, k).largest();
    const Needs needs{.rows = rows_of_a_chunk(batch),
                      .of_an_output = 4 + 2 * together,
                      .of_a_parameter = 1,
                      .of_results = batch.elements() + std::size_t{k} * nw,
                      .are_swept = true};
    return computing_call<CotangentsModel>(*net, w, batch, all_cotangents, needs, work);
}
