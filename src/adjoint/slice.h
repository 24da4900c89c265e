#pragma once

#include <utility>

#include "adjoint/forward.h"
#include "eval/objective.h"
#include "model/scalar.h"

namespace VEMKN {

// What a thread needs to differentiate slices; storage is allocated at the first slice and reused.
template <class Model>
struct SliceWorkspace {
    TransposedWeights<Model> transposes;  // for a batch of one slice, mostly none
    ForwardCache<typename Model::Matrix> cache;
    typename Model::Matrix outAdj;
    typename Model::Matrix R;
    typename Model::Vector norms;
    typename Model::SValue seed{0.0};
    typename Model::SValue output_seed{0.0};
    typename Model::SValue value{0.0};
    SweepWorkspace<Model> sweep;
    // Of one of several slices that run together, and the objective of each.
    typename Model::Matrix slice_outAdj;
    typename Model::Matrix slice_R;
    CallList<typename Model::SValue> values;
};

// Runs the network over one slice, and gives the adjoint of its outputs.
//   X : rows x nin        Y : rows x nout
//   seed : adjoint of the objective. Exactly 0.0 means that outAdj comes in as a cotangent of the element norms
//   outAdj : rows x nout; leaves as the adjoint of the outputs
//   R : overwritten with the residuals        result : the slice's objective, in work
template <NetworkModel Model>
typename Model::SValue& adj_outputs(const Model& net,
                                    const RowsView& X,
                                    const RowsView& Y,
                                    const typename Model::SValue& seed,
                                    typename Model::Matrix& outAdj,
                                    typename Model::Matrix& R,
                                    SliceWorkspace<Model>& work)
{
    std::swap(R, residuals(net, X, Y, work.cache));
    mean_norm(net, R, work.value);
    if (value_of(seed) != 0.0) {
        work.output_seed = seed;
        work.output_seed /= static_cast<double>(R.size());
        net.summing_norm.adjoint(R, work.output_seed, outAdj);
    } else {
        element_norm(net, R, work.norms);
        net.element_norm.adjoint(R, asVector(outAdj), outAdj);
    }
    return work.value;
}

// The same for neighbouring slices that run together, with their objectives in work.values.
//   X, Y : their rows, cut by slices        seed_of(rows) : adjoint of the objective of a slice of so many rows
//   work.outAdj, work.R : as outAdj and R there, of all rows
template <NetworkModel Model, class SeedOf>
void adj_outputs_together(const Model& net,
                          const RowsView& X,
                          const RowsView& Y,
                          const Slices& slices,
                          const SeedOf& seed_of,
                          SliceWorkspace<Model>& work)
{
    const std::size_t n = slices.count();
    if (work.values.size() < n) work.values.resize(n, typename Model::SValue(0.0));
    if (n == 1) {
        work.values[0] = adj_outputs(net, X, Y, seed_of(X.rows), work.outAdj, work.R, work);
        return;
    }
    std::swap(work.R, residuals(net, X, Y, work.cache));
    bool seeded = false;
    for (std::size_t j = 0; j < n; ++j) {
        take_rows(work.R, slices.rows(j), work.slice_R);
        mean_norm(net, work.slice_R, work.values[j]);
        const auto& seed = seed_of(work.slice_R.rows());
        seeded = value_of(seed) != 0.0;
        if (!seeded) continue;
        work.output_seed = seed;
        work.output_seed /= static_cast<double>(work.slice_R.size());
        net.summing_norm.adjoint(work.slice_R, work.output_seed, work.slice_outAdj);
        put_rows(work.outAdj, slices.first_row(j), work.slice_outAdj);
    }
    if (seeded) return;
    element_norm(net, work.R, work.norms);
    net.element_norm.adjoint(work.R, asVector(work.outAdj), work.outAdj);
}

// Objective of a batch of one slice and its gradient, or the vector-Jacobian product of a cotangent.
//   all as for adj_outputs        grad : overwritten
template <NetworkModel Model>
const typename Model::SValue& adj_computev(const Model& net,
                                           const RowsView& X,
                                           const RowsView& Y,
                                           const typename Model::SValue& seed,
                                           typename Model::Matrix& outAdj,
                                           typename Model::Matrix& R,
                                           SliceWorkspace<Model>& work,
                                           typename Model::Gradient& grad)
{
    // Where OpenBLAS multiplies, other factors would be other bits.
    constexpr std::size_t WORTH_THE_COPIES = 64;
    if (X.rows >= WORTH_THE_COPIES && !multiplies_by_blas(net)) {
        work.transposes = TransposedWeights<Model>(net);
    }
    adj_outputs(net, X, Y, seed, outAdj, R, work);
    backward(net, work.transposes, work.cache, outAdj, work.sweep, grad, Into::overwrite);
    return work.value;
}

}  // namespace VEMKN
