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
    const auto adj_run = [&](SliceWorkspace<Model>& work, std::size_t first, std::size_t n) {
        const RowsView Xs = slices.cut(X, first, n), Ys = slices.cut(Y, first, n);
        const auto seed_of = [&](std::size_t rows) -> const SValue& {
            work.seed = seed;
            work.seed *= static_cast<double>(rows);
            work.seed *= static_cast<double>(Ys.cols);
            return work.seed;
        };
        set_zero(work.outAdj, Ys.rows, Ys.cols);
        adj_outputs_together(net, Xs, Ys, slices.part(first, n), seed_of, work);
        for (std::size_t j = 0; j < n; ++j) {
            work.values[j] *= static_cast<double>(slices.rows_of(first + j) * Ys.cols);
        }
    };
    SValue value = adj_slices(net, slices, adj_run, grad);
    value /= elements;
    return value;
}

}  // namespace VEMKN
