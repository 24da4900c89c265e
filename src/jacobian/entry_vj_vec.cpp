#include "api/computing_call.h"
#include "api/refusals.h"
#include "api/work_model.h"
#include "jacobian/sweeps.h"
#include "jacobian/trace.h"

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
    const Refusal refusal("vemk_vJ_vec", net);
    if (refusal.normed_network() || refusal.weight_count(nw) || refusal.residuals(nrows, ycols) ||
        refusal.too_many("weighting values", nrows, ycols, k)) {
        return REFUSED;
    }
    const auto factors = {InputArray{u, std::uint64_t{k} * nrows * ycols},
                          input_rows(*net, x, nrows, xcols)};
    return computing_call(*net, w, factors, [&](Results& results) {
        const auto model = with_weights<ManySweepsModel>(*net, w);
        const InputRows X = network_input(model, x, nrows, xcols);
        const InputRows Y(y, nrows, ycols);
        const InputRows U(u, std::size_t{k} * nrows, ycols);
        std::valarray<RowsView> weightings(k);
        for (std::size_t i = 0; i < k; ++i) weightings[i] = RowsView(U).slice(i * nrows, nrows);
        WorkMatrix R;
        const WeightingGroups groups = weighting_groups(model, k, nrows);
        std::valarray<ManySweepsModel::Gradient> grads;
        Trace trace;
        adj_computev_vec(model, X, Y, R, weightings, groups, grads);
        trace.finish();
        if (Trace::wanted()) trace.print(mean_norm(model, R));

        results.write(r_out, R);
        for (std::size_t g = 0; g < groups.number(); ++g) {
            for (std::size_t i = groups.begin(g); i < groups.end(g); ++i) {
                double* const out = g_out == nullptr ? g_out : g_out + i * nw;
                results.write(out, grads[g], i - groups.begin(g));
            }
        }
    });
}
