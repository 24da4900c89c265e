#pragma once

#include <valarray>

#include "adjoint/objective.h"

namespace VEMKN {

// Gradient of the sum over all elements of U times the element norm of the residuals.
//   X : n x nin        Y, U : n x nout        R : n x nout already; overwritten with the residuals
//   grad : zeroed by the caller; a batch of one slice overwrites it, several slices are added
// U holds absolute weights, so slices simply add up.
template <class Model>
void adj_residuals(const Model& net,
                   const RowsView& X,
                   const RowsView& Y,
                   typename Model::Matrix& R,
                   const RowsView& U,
                   Model& grad)
{
    using Matrix = typename Model::Matrix;
    check_input_width(net, X.cols);

    const auto adj_rows = [&](AdjointWork<Model>& work,
                              const RowsView& Xs,
                              const RowsView& Ys,
                              const RowsView& Us,
                              Model& slice_grad) -> const Matrix& {
        const Matrix& slice_R = residuals(net, Xs, Ys, work.tape);
        work.outAdj = Matrix(Us.data, Us.rows, Us.cols);
        adj_element_norm(net, slice_R, work.outAdj, work.outAdj);
        backward(net, work.transposes, work.tape, work.outAdj, work.sweep, slice_grad);
        return slice_R;
    };
    const Slices slices(X.rows, net.batch);
    if (slices.single()) {
        AdjointWork<Model> work;
        R = adj_rows(work, X, Y, U, grad);
        return;
    }
    adj_slices(
        net,
        slices,
        [&](AdjointWork<Model>& work, std::size_t s, Model& slice_grad) {
            const Matrix& slice_R =
                adj_rows(work, slices.cut(X, s), slices.cut(Y, s), slices.cut(U, s), slice_grad);
            put_elements(R.store(), slices.first_row(s) * R.cols(), slice_R);
            return typename Model::SValue(0.0);
        },
        grad);
}

// The same for several weightings: one forward pass over the whole batch, then one backward sweep for each U[i], shared
// out over the threads. grads[i] has the model's shapes and is overwritten.
template <class Model>
void adj_computev_vec(const Model& net,
                      const RowsView& X,
                      const RowsView& Y,
                      typename Model::Matrix& R,
                      const std::valarray<typename Model::Matrix>& U,
                      std::valarray<Model>& grads)
{
    using Matrix = typename Model::Matrix;
    check_input_width(net, X.cols);

    Tape<Matrix> tape;
    R = residuals(net, X, Y, tape);
    const TransposedWeights<Model> transposes(net);

    struct Local {
        Matrix outAdj;
        Sweep<Model> sweep;
    };

    for_each_share(
        Shares(U.size(), net.threads),
        net.threads,
        [] { return Local(); },
        [](Local&) {},
        [&](Local& local, std::size_t i) {
            local.outAdj = U[i];
            adj_element_norm(net, R, local.outAdj, local.outAdj);
            backward(net, transposes, tape, local.outAdj, local.sweep, grads[i]);
        },
        [](const Local&) {});  // sweeps write gradients of their own: nothing to merge
}

}  // namespace VEMKN
