#pragma once

#include <valarray>

#include "adjoint/objective.h"

namespace VEMKN {

// Gradient of the sum over all elements of U times the element norm of the residuals.
//   X : n x nin        Y, U : n x nout        R : overwritten with the residuals
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
    R.resize(X.rows, Y.cols);

    const auto adj_rows = [&](AdjointWork<Model>& work,
                              const RowsView& Xs,
                              const RowsView& Ys,
                              const RowsView& Us,
                              Model& slice_grad) -> const Matrix& {
        const Matrix& slice_R = residuals(net, Xs, Ys, work.tape);
        work.outAdj = Matrix(Us.data, Us.rows, Us.cols);
        adj_element_norm(net, slice_R, work.outAdj, work.outAdj);
        backward(net, *work.transposes, work.tape, work.outAdj, work.sweep, slice_grad);
        return slice_R;
    };
    const Slices slices(X.rows, net.batch);
    if (slices.single()) {
        const TransposedWeights<Model> none;
        AdjointWork<Model> work(none);
        R = adj_rows(work, X, Y, U, grad);
        return;
    }
    adj_slices(
        net,
        slices,
        [&](AdjointWork<Model>& work, std::size_t s, Model& slice_grad) {
            const Matrix& slice_R =
                adj_rows(work, slices.cut(X, s), slices.cut(Y, s), slices.cut(U, s), slice_grad);
            put_rows(R, slices.first_row(s), slice_R);
            return typename Model::SValue(0.0);
        },
        grad);
}

// The same for several weightings: one forward pass over the whole batch, then one backward sweep for each U[i], shared
// out over the threads. U[i] is a matrix or a view of rows; grads[i] has the model's shapes and is overwritten.
// Rows go through in blocks, every sweep of a share over one block before the next, so that the intermediates of a block
// are read from memory once a share.
template <class Model, class Weighting>
void adj_computev_vec(const Model& net,
                      const RowsView& X,
                      const RowsView& Y,
                      typename Model::Matrix& R,
                      const std::valarray<Weighting>& U,
                      std::valarray<Model>& grads)
{
    using Matrix = typename Model::Matrix;
    check_input_width(net, X.cols);
    R.resize(X.rows, Y.cols);

    const Slices blocks(X.rows, ROWS_IN_CACHE);
    std::vector<Tape<Matrix>> tapes(blocks.number());
    for_each_share(
        Shares(blocks.number(), net.threads),
        net.threads,
        [] { return nullptr; },
        [](auto) {},
        [&](auto, std::size_t b) {
            const Matrix& block_R = residuals(net, blocks.cut(X, b), blocks.cut(Y, b), tapes[b]);
            put_rows(R, blocks.first_row(b), block_R);
        },
        [](auto) {});  // blocks write rows of their own: nothing to merge

    const TransposedWeights<Model> transposes(net);

    struct Local {
        explicit Local(const Model& shapes) : block_grad(zeros_like(shapes)) {}

        Matrix outAdj;
        Sweep<Model> sweep;
        Model block_grad;
    };

    const auto sweep_block = [&](Local& local, std::size_t i, std::size_t b) {
        const RowsView Ub = blocks.cut(RowsView(U[i]), b);
        local.outAdj = Matrix(Ub.data, Ub.rows, Ub.cols);
        adj_element_norm(net, tapes[b].O, local.outAdj, local.outAdj);
        backward(net, transposes, tapes[b], local.outAdj, local.sweep, local.block_grad);
        do_add(grads[i], local.block_grad);
    };
    for (Model& grad : grads) setweights0(grad);
    const Shares sweeps(U.size(), net.threads);
    for_each_share(
        Shares(sweeps.number(), net.threads),
        net.threads,
        [&] { return Local(net); },
        [](Local&) {},
        [&](Local& local, std::size_t item) {
            const auto share = static_cast<unsigned>(item);
            for (std::size_t b = 0; b < blocks.number(); ++b) {
                for (std::size_t i = sweeps.begin(share); i < sweeps.end(share); ++i) {
                    sweep_block(local, i, b);
                }
            }
        },
        [](const Local&) {});  // sweeps write gradients of their own: nothing to merge
}

}  // namespace VEMKN
