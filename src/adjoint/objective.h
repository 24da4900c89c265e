#pragma once

#include "adjoint/forward.h"
#include "api/params.h"
#include "eval/objective.h"

namespace VEMKN {

inline double value_of(double s)
{
    return s;
}  // a carrier's value: fad/active.h

// Whatever a thread needs to differentiate slices; storage is allocated at the first slice and reused.
template <class Model>
struct AdjointWork {
    explicit AdjointWork(const TransposedWeights<Model>& of_call) : transposes(&of_call) {}

    const TransposedWeights<Model>* transposes;
    Tape<typename Model::Matrix> tape;
    typename Model::Matrix outAdj;
    typename Model::Matrix R;
    Sweep<Model> sweep;
};

// Adjoint of the outputs for the mean norm: Obar = seed/size(R) * d(summing norm)/dR.
template <class Model>
void adj_mean_norm(const Model& net,
                   const typename Model::Matrix& R,
                   typename Model::SValue seed,
                   typename Model::Matrix& Obar)
{
    seed /= static_cast<double>(R.size());
    net.summing_norm.adjoint(R, seed, Obar);
}

// Adjoint of the outputs for a weighted sum of element norms: Obar = U * d(element norm)/dR.
//   U : shape of R        Obar : shape of R, overwritten; may be U
template <class Model>
void adj_element_norm(const Model& net,
                      const typename Model::Matrix& R,
                      const typename Model::Matrix& U,
                      typename Model::Matrix& Obar)
{
    const typename Model::Vector weighting = asVector(U);
    net.element_norm.adjoint(R, weighting, Obar);
}

// Objective of one slice and its gradient.
//   X : rows x nin        Y : rows x nout
//   seed : adjoint of the objective. Exactly 0.0 means that outAdj comes in as a weighting of the element norms, and
//          that grad receives the gradient of that weighted sum
//   outAdj : rows x nout; leaves as the adjoint of the outputs
//   R : overwritten with the residuals        grad : overwritten
template <class Model>
typename Model::SValue adj_computev(const Model& net,
                                    const RowsView& X,
                                    const RowsView& Y,
                                    const typename Model::SValue& seed,
                                    typename Model::Matrix& outAdj,
                                    typename Model::Matrix& R,
                                    AdjointWork<Model>& work,
                                    Model& grad)
{
    check_input_width(net, X.cols);
    std::swap(R, residuals(net, X, Y, work.tape));
    typename Model::SValue value = mean_norm(net, R);
    if (value_of(seed) != 0.0) {
        adj_mean_norm(net, R, seed, outAdj);
    } else {
        adj_element_norm(net, R, outAdj, outAdj);
    }
    backward(net, *work.transposes, work.tape, outAdj, work.sweep, grad);
    return value;
}

// Differentiates slices and adds up their gradients: adj_slice(work, s, slice_grad) overwrites slice_grad with the
// gradient of slice s and returns the slice's part of the value. Slices are added up by share, shares into grad; returns
// the sum of the parts.
template <class Model, class AdjSlice>
typename Model::SValue adj_slices(const Model& net,
                                  const Slices& slices,
                                  const AdjSlice& adj_slice,
                                  Model& grad)
{
    using SValue = typename Model::SValue;

    struct Local {
        Local(const Model& shapes, const TransposedWeights<Model>& transposes)
            : work(transposes), slice_grad(zeros_like(shapes)), share_grad(slice_grad)
        {
        }

        AdjointWork<Model> work;
        Model slice_grad;
        Model share_grad;
        SValue sum{0.0};
    };

    const TransposedWeights<Model> transposes(net);
    SValue total(0.0);
    for_each_share(
        Shares(slices.number(), net.threads),
        net.threads,
        [&] { return Local(net, transposes); },
        [](Local& local) {
            setweights0(local.share_grad);
            local.sum = SValue(0.0);
        },
        [&](Local& local, std::size_t s) {
            local.sum += adj_slice(local.work, s, local.slice_grad);
            do_add(local.share_grad, local.slice_grad);
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
template <class Model>
typename Model::SValue adj_objv(const Model& net,
                                const RowsView& X,
                                const RowsView& Y,
                                typename Model::SValue seed,
                                Model& grad)
{
    using SValue = typename Model::SValue;
    check_input_width(net, X.cols);

    const auto adj_rows = [&](AdjointWork<Model>& work,
                              const RowsView& Xs,
                              const RowsView& Ys,
                              const SValue& slice_seed,
                              Model& slice_grad) {
        set_zero(work.outAdj, Ys.rows, Ys.cols);
        return adj_computev(net, Xs, Ys, slice_seed, work.outAdj, work.R, work, slice_grad);
    };
    const Slices slices(X.rows, net.batch);
    if (slices.single()) {
        const TransposedWeights<Model> none;
        AdjointWork<Model> work(none);
        return adj_rows(work, X, Y, seed, grad);
    }

    const auto elements = static_cast<double>(Y.size());
    seed /= elements;
    SValue value = adj_slices(
        net,
        slices,
        [&](AdjointWork<Model>& work, std::size_t s, Model& slice_grad) {
            const RowsView Ys = slices.cut(Y, s);
            SValue slice_seed = seed;
            slice_seed *= static_cast<double>(Ys.rows);
            slice_seed *= static_cast<double>(Ys.cols);
            SValue part = adj_rows(work, slices.cut(X, s), Ys, slice_seed, slice_grad);
            part *= static_cast<double>(Ys.size());
            return part;
        },
        grad);
    value /= elements;
    return value;
}

}  // namespace VEMKN
