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
    adj_outputs(net, X, Y, seed, outAdj, R, work);
    backward(net, work.transposes, work.cache, outAdj, work.sweep, grad, Into::overwrite);
    return work.value;
}

}  // namespace VEMKN
