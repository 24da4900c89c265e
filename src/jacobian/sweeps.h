#pragma once

#include <valarray>

#include "adjoint/objective.h"
#include "jacobian/weighting_groups.h"

namespace VEMKN {

// Adjoint of the outputs for the sum of U times the element norms of R.
//   U : shape of R, constants        Obar : overwritten
template <class Matrix, class Model>
void adj_weighted(const Model& net, const Matrix& R, const RowsView& U, Matrix& Obar)
{
    Obar.resize(U.rows, U.cols);
    std::copy_n(U.data, U.size(), Obar.data());
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

// How many blocks of rows to run forward before they are swept. A team waits twice a round, so a round is several blocks
// for each share; but what they keep is taken from the system and given back every call, so it is a small part of the
// rows. A single thread has nobody to wait for.
inline std::size_t blocks_of_a_round(std::size_t blocks, unsigned threads)
{
    constexpr std::size_t LEAST_ROUNDS = 4, MOST_OF_A_SHARE = 16;
    const std::size_t shares = std::min(threads, Shares::MAX_NUMBER);
    if (shares == 1) return 1;
    return shares * std::clamp(blocks / (LEAST_ROUNDS * shares), std::size_t{1}, MOST_OF_A_SHARE);
}

// Zeros for n gradients side by side.
template <class Model>
typename Model::Gradient zero_gradients(const Model& net, std::size_t n)
{
    typename Model::Gradient grads;
    grads.weights.resize(net.weights.size());
    grads.biases.resize(net.biases.size());
    for (std::size_t i = 0; i < net.weights.size(); ++i) {
        grads.weights[i].set_shape(net.weights[i].rows(), net.weights[i].cols(), n);
        grads.biases[i].set_shape(1, net.biases[i].size(), n);
    }
    setweights0(grads);
    return grads;
}

// Gradients of several such sums: one forward pass, then a backward sweep for each group of weightings, shared out over the
// threads.
//   X, Y, R : as adj_residuals
//   U : the weightings, each n x nout        groups : as weighting_groups deals them
//   grads : one for each group, made here: the gradients of its weightings side by side
// Rows go through in blocks, every sweep of a share over one block before the next, so that the intermediates of a
// block are read while in cache.
template <class Model>
void adj_computev_vec(const Model& net,
                      const RowsView& X,
                      const RowsView& Y,
                      typename Model::Matrix& R,
                      const std::valarray<RowsView>& U,
                      const WeightingGroups& groups,
                      std::valarray<typename Model::Gradient>& grads)
{
    using Matrix = typename Model::Matrix;
    check_input_width(net, X.cols);
    R.resize(X.rows, Y.cols);

    grads = std::valarray<typename Model::Gradient>(groups.number());
    for (std::size_t g = 0; g < groups.number(); ++g) {
        grads[g] = zero_gradients(net, groups.size(g));
    }

    struct Local {
        typename Model::Adjoint outAdj;
        Sweep<Model> sweep;
    };

    const Slices blocks(X.rows, ROWS_IN_CACHE);
    const unsigned threads = sweeping_threads(net, X.rows);
    const std::size_t round = blocks_of_a_round(blocks.number(), threads);
    const TransposedWeights<Model> transposes(net);
    std::vector<Tape<Matrix>> tapes(std::min(round, blocks.number()));
    std::vector<Local> locals(groups.shares());

    // Block `first + j` has tape j.
    const auto run_block = [&](std::size_t first, std::size_t j) {
        const std::size_t b = first + j;
        const Matrix& block_R = residuals(net, blocks.cut(X, b), blocks.cut(Y, b), tapes[j]);
        put_rows(R, blocks.first_row(b), block_R);
    };
    const auto sweep_block = [&](Local& local, std::size_t g, std::size_t first, std::size_t j) {
        if (groups.size(g) == 0) return;
        const std::size_t b = first + j;
        local.outAdj.set_shape(blocks.rows_of(b), Y.cols, groups.size(g));
        for (std::size_t i = 0; i < groups.size(g); ++i) {
            put_matrix(local.outAdj, i, blocks.cut(U[groups.begin(g) + i], b));
        }
        net.element_norm.adjoint(tapes[j].O, local.outAdj, local.outAdj);
        backward(net, transposes, tapes[j], local.outAdj, local.sweep, grads[g], Into::add);
    };
    const auto nothing = [](const auto&...) {};  // blocks and sweeps write to places of their own
    const auto no_local = [] { return nullptr; };
    for (std::size_t first = 0; first < blocks.number(); first += round) {
        const std::size_t count = std::min(round, blocks.number() - first);
        for_each_share(
            Shares(count, threads),
            threads,
            no_local,
            nothing,
            [&](auto, std::size_t j) { run_block(first, j); },
            nothing);
        for_each_share(
            Shares(groups.shares(), threads),
            threads,
            no_local,
            nothing,
            [&](auto, std::size_t share) {
                const std::size_t first_group = share * groups.of_share();
                for (std::size_t j = 0; j < count; ++j) {
                    for (std::size_t i = 0; i < groups.of_share(); ++i) {
                        sweep_block(locals[share], first_group + i, first, j);
                    }
                }
            },
            nothing);
    }
}

}  // namespace VEMKN
