#pragma once

#include <valarray>

#include "adjoint/objective.h"

namespace VEMKN {

// Adjoint of the outputs for the sum of U times the element norms of R.
//   U : shape of R, constants        Obar : overwritten
template <class Matrix, class Model>
void adj_weighted(const Model& net, const Matrix& R, const RowsView& U, Matrix& Obar)
{
    Obar = Matrix(U.data, U.rows, U.cols);
    net.element_norm.adjoint(R, asVector(Obar), Obar);
}

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
                              Model& rows_grad,
                              Into into) -> const Matrix& {
        const Matrix& slice_R = residuals(net, Xs, Ys, work.tape);
        adj_weighted(net, slice_R, Us, work.outAdj);
        backward(net, *work.transposes, work.tape, work.outAdj, work.sweep, rows_grad, into);
        return slice_R;
    };
    const Slices slices(X.rows, net.batch);
    if (slices.single()) {
        const TransposedWeights<Model> none;
        AdjointWork<Model> work(none);
        R = adj_rows(work, X, Y, U, grad, Into::overwrite);
        return;
    }
    adj_slices(
        net,
        slices,
        [&](AdjointWork<Model> & work, std::size_t s, Model & share_grad) -> const auto& {
            const RowsView Xs = slices.cut(X, s), Ys = slices.cut(Y, s), Us = slices.cut(U, s);
            put_rows(R, slices.first_row(s), adj_rows(work, Xs, Ys, Us, share_grad, Into::add));
            return work.value;  // no value is asked for: it stays zero
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
        Matrix outAdj;
        Sweep<Model> sweep;
    };

    const auto sweep_block = [&](Local& local, std::size_t i, std::size_t b) {
        adj_weighted(net, tapes[b].O, blocks.cut(RowsView(U[i]), b), local.outAdj);
        backward(net, transposes, tapes[b], local.outAdj, local.sweep, grads[i], Into::add);
    };
    for (Model& grad : grads) setweights0(grad);
    const Shares sweeps(U.size(), net.threads);
    for_each_share(
        Shares(sweeps.number(), net.threads),
        net.threads,
        [] { return Local(); },
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
