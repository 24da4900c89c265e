#pragma once

#include <valarray>

#include "adjoint/objective.h"

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

// A batch that fits one slice of the model is too little work for a team.
template <class Model>
unsigned sweeping_threads(const Model& net, std::size_t rows)
{
    return Slices(rows, net.batch).single() ? 1 : net.threads;
}

// The groups of neighbouring weightings that are swept side by side, as slices of the list of all: about equally large,
// and a whole number of them a share. None is larger than lets the adjoints of a block of rows stay in the innermost
// cache: of wide layers one at a time is fastest (docs/performance.md).
template <class Model>
Slices weighting_groups(const Model& net, std::size_t weightings, unsigned threads)
{
    constexpr std::size_t IN_CACHE = 4096, LARGEST = 8;
    std::size_t widest = 1;
    for (const auto& W : net.weights) widest = std::max(widest, W.cols());
    const std::size_t most =
        std::clamp<std::size_t>(IN_CACHE / (ROWS_IN_CACHE * widest), 1, LARGEST);

    const auto parts = [](std::size_t whole, std::size_t n) { return (whole + n - 1) / n; };
    const std::size_t of_share = parts(weightings, std::min(threads, Shares::MAX_NUMBER));
    const std::size_t groups_of_share = std::max<std::size_t>(parts(of_share, most), 1);
    const std::size_t size = std::max<std::size_t>(parts(of_share, groups_of_share), 1);
    return {weightings, static_cast<std::int32_t>(size)};
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
//   U : the weightings, each n x nout
//   grads : one for each group, overwritten with the gradients of its weightings side by side
// Rows go through in blocks, every sweep of a share over one block before the next, so that the intermediates of a
// block are read while in cache.
template <class Model>
void adj_computev_vec(const Model& net,
                      const RowsView& X,
                      const RowsView& Y,
                      typename Model::Matrix& R,
                      const std::valarray<RowsView>& U,
                      std::valarray<typename Model::Gradient>& grads)
{
    using Matrix = typename Model::Matrix;
    check_input_width(net, X.cols);
    R.resize(X.rows, Y.cols);

    const unsigned threads = sweeping_threads(net, X.rows);
    const Slices groups = weighting_groups(net, U.size(), threads);
    for (std::size_t g = 0; g < groups.number(); ++g) {
        grads[g] = zero_gradients(net, groups.rows_of(g));
    }

    struct Local {
        typename Model::Adjoint outAdj;
        Sweep<Model> sweep;
    };

    const Slices blocks(X.rows, ROWS_IN_CACHE);
    const std::size_t round = blocks_of_a_round(blocks.number(), threads);
    const Shares sweeps(groups.number(), threads);
    const TransposedWeights<Model> transposes(net);
    std::vector<Tape<Matrix>> tapes(std::min(round, blocks.number()));
    std::vector<Local> locals(sweeps.number());

    // Block `first + j` has tape j.
    const auto run_block = [&](std::size_t first, std::size_t j) {
        const std::size_t b = first + j;
        const Matrix& block_R = residuals(net, blocks.cut(X, b), blocks.cut(Y, b), tapes[j]);
        put_rows(R, blocks.first_row(b), block_R);
    };
    const auto sweep_block = [&](Local& local, std::size_t g, std::size_t first, std::size_t j) {
        const std::size_t b = first + j;
        local.outAdj.set_shape(blocks.rows_of(b), Y.cols, groups.rows_of(g));
        for (std::size_t i = 0; i < groups.rows_of(g); ++i) {
            put_matrix(local.outAdj, i, blocks.cut(U[groups.first_row(g) + i], b));
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
            Shares(sweeps.number(), threads),
            threads,
            no_local,
            nothing,
            [&](auto, std::size_t item) {
                const auto share = static_cast<unsigned>(item);
                for (std::size_t j = 0; j < count; ++j) {
                    for (std::size_t g = sweeps.begin(share); g < sweeps.end(share); ++g) {
                        sweep_block(locals[share], g, first, j);
                    }
                }
            },
            nothing);
    }
}

}  // namespace VEMKN
