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

// Adjoint of the residuals of slices of so many rows from that of the mean norm of each.
template <NetworkModel Model>
void adj_mean_norm(const Model& net,
                   const typename Model::Matrix& R,
                   const typename Model::SValue& seed,
                   std::size_t rows_of_a_slice,
                   typename Model::Matrix& Rbar,
                   SliceWorkspace<Model>& work)
{
    work.output_seed = seed;
    work.output_seed /= static_cast<double>(rows_of_a_slice * R.cols());
    net.summing_norm.adjoint(R, work.output_seed, Rbar);
}

// The same from those of their element norms, which Rbar comes in with.
template <NetworkModel Model>
void adj_element_norm(const Model& net,
                      const typename Model::Matrix& R,
                      typename Model::Matrix& Rbar,
                      SliceWorkspace<Model>& work)
{
    element_norm(net, R, work.norms);
    net.element_norm.adjoint(R, asVector(Rbar), Rbar);
}

// Runs the network over one slice, and gives the adjoint of its outputs.
//   X : rows x nin        Y : rows x nout
//   seed : adjoint of the objective. Exactly 0.0 means that outAdj comes in as a cotangent of the element norms
//   outAdj : rows x nout; leaves as the adjoint of the outputs
//   R : overwritten with the residuals        value : overwritten with the slice's objective
template <NetworkModel Model>
void adj_outputs(const Model& net,
                 const RowsView& X,
                 const RowsView& Y,
                 const typename Model::SValue& seed,
                 typename Model::Matrix& outAdj,
                 typename Model::Matrix& R,
                 SliceWorkspace<Model>& work,
                 typename Model::SValue& value)
{
    std::swap(R, residuals(net, X, Y, work.cache));
    mean_norm(net, R, value);
    if (value_of(seed) != 0.0) {
        adj_mean_norm(net, R, seed, R.rows(), outAdj, work);
    } else {
        adj_element_norm(net, R, outAdj, work);
    }
}

// The same for neighbouring slices that run together, with their objectives in work.values.
//   X, Y : their rows, cut by slices
//   seed_of(rows) : adjoint of the objective of a slice of so many rows, exactly 0.0 for all of them or for none
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
        return adj_outputs(
            net, X, Y, seed_of(X.rows), work.outAdj, work.R, work, work.values.front());
    }
    std::swap(work.R, residuals(net, X, Y, work.cache));
    for (std::size_t j = 0; j < n; ++j) {
        take_rows(work.R, slices.rows(j), work.slice_R);
        mean_norm(net, work.slice_R, work.values[j]);
    }
    if (value_of(seed_of(slices.rows_of(0))) == 0.0) {
        return adj_element_norm(net, work.R, work.outAdj, work);
    }
    // Slices of as many rows have the same seed: all of them but the last one maybe.
    const RowRange last = slices.rows(n - 1);
    const std::size_t most = slices.rows_of(0);
    if (last.count == most) {
        return adj_mean_norm(net, work.R, seed_of(most), most, work.outAdj, work);
    }
    const auto adj_rows = [&](const RowRange& rows, std::size_t of_a_slice) {
        take_rows(work.R, rows, work.slice_R);
        adj_mean_norm(net, work.slice_R, seed_of(of_a_slice), of_a_slice, work.slice_outAdj, work);
        put_rows(work.outAdj, rows.first, work.slice_outAdj);
    };
    adj_rows({0, last.first}, most);
    adj_rows(last, last.count);
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
    adj_outputs(net, X, Y, seed, outAdj, R, work, work.value);
    backward(net, work.transposes, work.cache, outAdj, work.sweep, grad, Into::overwrite);
    return work.value;
}

}  // namespace VEMKN
