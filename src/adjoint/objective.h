#pragma once

#include "adjoint/slice_sums.h"

namespace VEMKN {

// Objective of a batch and its gradient times seed.
//   X, Y : as objv        grad : zeroed by the caller; a batch of one slice overwrites it, several slices are added
// A slice's objective is a mean over its own elements, so its seed is its share of the whole batch's elements.
template <NetworkModel Model>
typename Model::SValue adj_objv(const Model& net,
                                const RowsView& X,
                                const RowsView& Y,
                                typename Model::SValue seed,
                                typename Model::Gradient& grad)
{
    using SValue = typename Model::SValue;
    const Slices slices(X.rows, net.batch);
    if (slices.single()) {
        SliceWorkspace<Model> work;
        set_zero(work.outAdj, Y.rows, Y.cols);
        return adj_computev(net, X, Y, seed, work.outAdj, work.R, work, grad);
    }

    const auto elements = static_cast<double>(Y.size());
    seed /= elements;
    SValue value = adj_slices(
        net,
        slices,
        [&](SliceWorkspace<Model>& work, std::size_t s) -> const SValue& {
            const RowsView Xs = slices.cut(X, s), Ys = slices.cut(Y, s);
            work.seed = seed;
            work.seed *= static_cast<double>(Ys.rows);
            work.seed *= static_cast<double>(Ys.cols);
            set_zero(work.outAdj, Ys.rows, Ys.cols);
            SValue& part = adj_outputs(net, Xs, Ys, work.seed, work.outAdj, work.R, work);
            part *= static_cast<double>(Ys.size());
            return part;
        },
        grad);
    value /= elements;
    return value;
}

}  // namespace VEMKN
