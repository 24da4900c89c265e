#pragma once

#include "adjoint/objective.h"
#include "jacobian/cotangent_groups.h"

namespace VEMKN {

// Vector-Jacobian product: the gradient of the sum over all elements of U times the element norm of the residual.
//   X : n x nin        Y, U : n x nout        R : overwritten with the residuals
//   grad : zeroed by the caller; a batch of one slice overwrites it, several slices are added
// U holds absolute numbers, not shares of a mean, so slices simply add up. The mean norm of a slice is evaluated as for a
// gradient, and is of no further use: nothing of an empty batch.
template <NetworkModel Model>
void adj_residuals(const Model& net,
                   const RowsView& X,
                   const RowsView& Y,
                   typename Model::Matrix& R,
                   const RowsView& U,
                   typename Model::Gradient& grad)
{
    R.resize(X.rows, Y.cols);
    if (R.size() == 0) return;

    const typename Model::SValue no_seed(0.0);
    const auto take_cotangent = [](SliceWorkspace<Model>& work, const RowsView& Us) {
        work.outAdj.resize(Us.rows, Us.cols);
        std::copy_n(Us.data, Us.size(), work.outAdj.data());
    };
    const Slices slices(X.rows, net.batch);
    if (slices.single()) {
        SliceWorkspace<Model> work;
        take_cotangent(work, U);
        adj_computev(net, X, Y, no_seed, work.outAdj, R, work, grad);
        return;
    }
    const auto no_seed_of = [&](std::size_t) -> const auto&
    {
        return no_seed;
    };
    const auto adj_run = [&](SliceWorkspace<Model>& work, std::size_t first, std::size_t n) {
        take_cotangent(work, slices.cut(U, first, n));
        const RowsView Xs = slices.cut(X, first, n), Ys = slices.cut(Y, first, n);
        adj_outputs_together(net, Xs, Ys, slices.part(first, n), no_seed_of, work);
        put_rows(R, slices.first_row(first), work.R);
        // No value is asked for.
        std::fill_n(work.values.begin(), n, no_seed);
    };
    adj_slices(net, slices, adj_run, grad);
}

// n gradients side by side, without contents.
template <class Model>
typename Model::Gradient gradients_side_by_side(const Model& net, std::size_t n)
{
    typename Model::Gradient grads;
    grads.weights.resize(net.weights.size());
    grads.biases.resize(net.biases.size());
    for (std::size_t i = 0; i < net.weights.size(); ++i) {
        grads.weights[i].set_shape(net.weights[i].rows(), net.weights[i].cols(), n);
        grads.biases[i].set_shape(1, net.biases[i].size(), n);
    }
    return grads;
}

// Several vector-Jacobian products: one forward pass, then a backward sweep of every chunk of rows for each group of
// cotangents, shared out over the threads.
//   X, Y, R : as adj_residuals
//   U : the cotangents, each n x nout        groups : how they go together
//   grads : one for each group, made here: the gradients of its cotangents side by side
// Rows go through in chunks, from the last to the first as column sums run: every sweep over one chunk before the next, so that
// the intermediates of a chunk are read while in cache.
template <NetworkModel Model>
void adj_computev_vec(const Model& net,
                      const RowsView& X,
                      const RowsView& Y,
                      typename Model::Matrix& R,
                      const CallList<RowsView>& U,
                      const CotangentGroups& groups,
                      CallList<typename Model::Gradient>& grads)
{
    using Matrix = typename Model::Matrix;
    R.resize(X.rows, Y.cols);

    grads.resize(groups.count());
    for (std::size_t g = 0; g < groups.count(); ++g) {
        grads[g] = gradients_side_by_side(net, groups.size(g));
        if (X.rows == 0) setweights0(grads[g]);  // no sweep fills them
    }

    const Slices chunks(X.rows, ROWS_OF_A_CHUNK, Remainder::first);
    // Chunks for each thread from which on nothing but chunks is dealt out.
    constexpr std::size_t ENOUGH_CHUNKS = 4;
    const TeamPermit team(chunks.count() * std::max<std::size_t>(groups.count(), 1),
                          worthwhile_threads(net, X.rows, 1 + U.size()));
    const TransposedWeights<Model> transposes(net);
    const std::size_t places = net.weights.size();
    Turns turns(places * groups.count(), team);

    struct Local {
        ForwardCache<Matrix> cache;
        typename Model::Vector norms;  // evaluated, and of no further use
        typename Model::Adjoint outAdj;
        SweepWorkspace<Model> sweep;
    };

    // The j-th chunk of the sweeps, from the last rows up.
    const auto run_chunk = [&](Local& local, ForwardCache<Matrix>& cache, std::size_t j) {
        const std::size_t c = chunks.count() - 1 - j;
        const Matrix& chunk_R = residuals(net, chunks.cut(X, c), chunks.cut(Y, c), cache);
        put_rows(R, chunks.first_row(c), chunk_R);
        element_norm(net, chunk_R, local.norms);
    };
    const auto sweep_chunk =
        [&](Local& local, const ForwardCache<Matrix>& cache, std::size_t g, std::size_t j) {
            const std::size_t c = chunks.count() - 1 - j;
            local.outAdj.set_shape(chunks.rows_of(c), Y.cols, groups.size(g));
            for (std::size_t i = 0; i < groups.size(g); ++i) {
                put_matrix(local.outAdj, i, chunks.cut(U[groups.begin(g) + i], c));
            }
            net.element_norm.adjoint(cache.O, local.outAdj, local.outAdj);
            const Into into = j == 0 ? Into::overwrite : Into::add;
            const SliceTurn turn(turns, j, g * places);
            backward(net, transposes, cache, local.outAdj, local.sweep, grads[g], into, turn);
        };
    const auto threads = static_cast<std::size_t>(team.size());
    if (threads == 1 || chunks.count() >= ENOUGH_CHUNKS * threads) {
        for_each_in_turn<Local>(chunks.count(), team, turns, [&](Local& local, std::size_t j) {
            run_chunk(local, local.cache, j);
            for (std::size_t g = 0; g < groups.count(); ++g) sweep_chunk(local, local.cache, g, j);
        });
        return;
    }
    CallList<ForwardCache<Matrix>> caches(chunks.count());
    for_each_item<Local>(
        chunks.count(), team, [&](Local& local, std::size_t j) { run_chunk(local, caches[j], j); });
    const auto sweep_item = [&](Local& local, std::size_t item) {
        const std::size_t j = item / groups.count();
        sweep_chunk(local, caches[j], item % groups.count(), j);
    };
    for_each_in_turn<Local>(chunks.count() * groups.count(), team, turns, sweep_item);
}

}  // namespace VEMKN
