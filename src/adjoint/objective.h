#pragma once

#include "adjoint/forward.h"
#include "eval/objective.h"
#include "model/scalar.h"

namespace VEMKN {

// What a thread needs to differentiate slices; storage is allocated at the first slice and reused.
template <class Model>
struct SliceWorkspace {
    explicit SliceWorkspace(const TransposedWeights<Model>& of_call) : transposes(&of_call) {}

    const TransposedWeights<Model>* transposes;
    ForwardCache<typename Model::Matrix> cache;
    typename Model::Matrix outAdj;
    typename Model::Matrix R;
    typename Model::Vector norms;
    typename Model::SValue seed{0.0};
    typename Model::SValue output_seed{0.0};
    typename Model::SValue value{0.0};
    SweepWorkspace<Model> sweep;
};

// Objective of one slice and its gradient.
//   X : rows x nin        Y : rows x nout
//   seed : adjoint of the objective. Exactly 0.0 means that outAdj comes in as a cotangent of the element norms,
//          and that grad receives its vector-Jacobian product
//   outAdj : rows x nout; leaves as the adjoint of the outputs
//   R : overwritten with the residuals        grad : overwritten or added to        result : in work
template <NetworkModel Model>
const typename Model::SValue& adj_computev(const Model& net,
                                           const RowsView& X,
                                           const RowsView& Y,
                                           const typename Model::SValue& seed,
                                           typename Model::Matrix& outAdj,
                                           typename Model::Matrix& R,
                                           SliceWorkspace<Model>& work,
                                           Model& grad,
                                           Into into = Into::overwrite)
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
    backward(net, *work.transposes, work.cache, outAdj, work.sweep, grad, into);
    return work.value;
}

// Differentiates slices and adds up their gradients: adj_slice(work, s, share_grad) adds the gradient of slice s and
// returns the slice's part of the value. Slices are added up by share, shares into grad; returns the sum of the parts.
template <NetworkModel Model, class AdjSlice>
typename Model::SValue adj_slices(const Model& net,
                                  const Slices& slices,
                                  const AdjSlice& adj_slice,
                                  Model& grad)
{
    using SValue = typename Model::SValue;
    const TransposedWeights<Model> transposes(net);
    const Shares shares(slices.count(), net.threads);
    SValue total(0.0);
    if (shares.count() == 1) {
        // A single share needs no gradient of its own.
        SliceWorkspace<Model> work(transposes);
        for (std::size_t s = 0; s < slices.count(); ++s) total += adj_slice(work, s, grad);
        return total;
    }

    struct Local {
        Local(const Model& shapes, const TransposedWeights<Model>& transposes)
            : work(transposes), share_grad(zeros_like(shapes))
        {
        }

        SliceWorkspace<Model> work;
        Model share_grad;
        SValue sum{0.0};
    };

    for_each_share(
        shares,
        net.threads,
        [&] { return Local(net, transposes); },
        [](Local& local) {
            setweights0(local.share_grad);
            local.sum = SValue(0.0);
        },
        [&](Local& local, std::size_t s) {
            local.sum += adj_slice(local.work, s, local.share_grad);
        },
        [&](const Local& local) {
            do_add(grad, local.share_grad);
            total += local.sum;
        });
    return total;
}

// Objective of a batch and its gradient times seed.
//   X, Y : as objv        grad : zeroed by the caller; a batch of one slice overwrites it, several slices are added
// A slice's objective is a mean over its own elements, so its seed is its share of the whole batch's elements.
template <NetworkModel Model>
typename Model::SValue adj_objv(const Model& net,
                                const RowsView& X,
                                const RowsView& Y,
                                typename Model::SValue seed,
                                Model& grad)
{
    using SValue = typename Model::SValue;
    const Slices slices(X.rows, net.batch);
    if (slices.single()) {
        const TransposedWeights<Model> none;
        SliceWorkspace<Model> work(none);
        set_zero(work.outAdj, Y.rows, Y.cols);
        return adj_computev(net, X, Y, seed, work.outAdj, work.R, work, grad);
    }

    const auto elements = static_cast<double>(Y.size());
    seed /= elements;
    SValue value = adj_slices(
        net,
        slices,
        [&](SliceWorkspace<Model>& work, std::size_t s, Model& share_grad) -> const SValue& {
            const RowsView Xs = slices.cut(X, s), Ys = slices.cut(Y, s);
            work.seed = seed;
            work.seed *= static_cast<double>(Ys.rows);
            work.seed *= static_cast<double>(Ys.cols);
            set_zero(work.outAdj, Ys.rows, Ys.cols);
            adj_computev(net, Xs, Ys, work.seed, work.outAdj, work.R, work, share_grad, Into::add);
            work.value *= static_cast<double>(Ys.size());
            return work.value;
        },
        grad);
    value /= elements;
    return value;
}

}  // namespace VEMKN
