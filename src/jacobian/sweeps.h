#pragma once

#include <valarray>

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
                   Model& grad)
{
    R.resize(X.rows, Y.cols);
    if (R.size() == 0) return;

    const typename Model::SValue no_seed(0.0);
    const auto adj_slice = [&](SliceWorkspace<Model>& work,
                               const RowsView& Xs,
                               const RowsView& Ys,
                               const RowsView& Us,
                               Model& slice_grad,
                               Into into) {
        work.outAdj.resize(Us.rows, Us.cols);
        std::copy_n(Us.data, Us.size(), work.outAdj.data());
        adj_computev(net, Xs, Ys, no_seed, work.outAdj, work.R, work, slice_grad, into);
    };
    const Slices slices(X.rows, net.batch);
    if (slices.single()) {
        const TransposedWeights<Model> none;
        SliceWorkspace<Model> work(none);
        adj_slice(work, X, Y, U, grad, Into::overwrite);
        std::swap(R, work.R);
        return;
    }
    adj_slices(
        net,
        slices,
        [&](SliceWorkspace<Model> & work, std::size_t s, Model & share_grad) -> const auto& {
            const RowsView Xs = slices.cut(X, s), Ys = slices.cut(Y, s), Us = slices.cut(U, s);
            adj_slice(work, Xs, Ys, Us, share_grad, Into::add);
            put_rows(R, slices.first_row(s), work.R);
            return no_seed;  // no value is asked for: the sum stays zero
        },
        grad);
}

// How many chunks of rows to run forward before they are swept. A team waits twice a round, so a round is several chunks
// for each share; but what they keep is taken from the system and given back every call, so it is a small part of the
// rows. A single thread has nobody to wait for.
inline std::size_t chunks_of_a_round(std::size_t chunks, unsigned threads)
{
    constexpr std::size_t LEAST_ROUNDS = 4, MOST_OF_A_SHARE = 16;
    const std::size_t shares = std::min(threads, Shares::MOST);
    if (shares == 1) return 1;
    return shares * std::clamp(chunks / (LEAST_ROUNDS * shares), std::size_t{1}, MOST_OF_A_SHARE);
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

// A call of little work runs on the calling thread; in multiplications of the sweeps, from which on two threads were faster on
// networks of 21 to 5,764 weights.
template <class Model>
unsigned sweeping_threads(const Model& net, std::size_t rows, std::size_t cotangents)
{
    constexpr double LEAST_WORK = 200'000;
    const auto work = static_cast<double>(rows) * static_cast<double>(numel(net)) *
                      static_cast<double>(std::max<std::size_t>(cotangents, 1));
    return work < LEAST_WORK ? 1 : net.threads;
}

// Several vector-Jacobian products: one forward pass, then a backward sweep for each group of cotangents, shared out over
// the threads.
//   X, Y, R : as adj_residuals
//   U : the cotangents, each n x nout        groups : how they go together
//   grads : one for each group, made here: the gradients of its cotangents side by side
// Rows go through in chunks, from the last to the first as column sums run: every sweep of a share over one chunk before
// the next, so that the intermediates of a chunk are read while in cache.
template <NetworkModel Model>
void adj_computev_vec(const Model& net,
                      const RowsView& X,
                      const RowsView& Y,
                      typename Model::Matrix& R,
                      const std::valarray<RowsView>& U,
                      const CotangentGroups& groups,
                      std::valarray<typename Model::Gradient>& grads)
{
    using Matrix = typename Model::Matrix;
    R.resize(X.rows, Y.cols);

    grads = std::valarray<typename Model::Gradient>(groups.count());
    for (std::size_t g = 0; g < groups.count(); ++g) {
        grads[g] = gradients_side_by_side(net, groups.size(g));
        if (X.rows == 0) setweights0(grads[g]);  // no sweep fills them
    }

    struct Local {
        typename Model::Adjoint outAdj;
        SweepWorkspace<Model> sweep;
    };

    const Slices chunks(X.rows, ROWS_OF_A_CHUNK, Remainder::first);
    const unsigned threads = sweeping_threads(net, X.rows, U.size());
    const std::size_t round = chunks_of_a_round(chunks.count(), threads);
    const TransposedWeights<Model> transposes(net);
    std::vector<ForwardCache<Matrix>> caches(std::min(round, chunks.count()));
    std::vector<typename Model::Vector> norms(caches.size());  // evaluated, and of no further use
    const Shares of_groups(groups.count(), threads);
    std::vector<Local> locals(of_groups.count());

    // The j-th chunk of a round, of which `done` were swept before. It has cache j.
    const auto chunk = [&](std::size_t done, std::size_t j) {
        return chunks.count() - 1 - (done + j);
    };
    const auto run_chunk = [&](std::size_t done, std::size_t j) {
        const std::size_t c = chunk(done, j);
        const Matrix& chunk_R = residuals(net, chunks.cut(X, c), chunks.cut(Y, c), caches[j]);
        put_rows(R, chunks.first_row(c), chunk_R);
        element_norm(net, chunk_R, norms[j]);
    };
    const auto sweep_chunk = [&](Local& local, std::size_t g, std::size_t done, std::size_t j) {
        const std::size_t c = chunk(done, j);
        local.outAdj.set_shape(chunks.rows_of(c), Y.cols, groups.size(g));
        for (std::size_t i = 0; i < groups.size(g); ++i) {
            put_matrix(local.outAdj, i, chunks.cut(U[groups.begin(g) + i], c));
        }
        net.element_norm.adjoint(caches[j].O, local.outAdj, local.outAdj);
        const Into into = done + j == 0 ? Into::overwrite : Into::add;
        backward(net, transposes, caches[j], local.outAdj, local.sweep, grads[g], into);
    };
    const Shares of_chunks(std::min(round, chunks.count()), threads);
    // One team for all: OpenMP would end and start threads between teams of other sizes.
    const TeamPermit team(std::max(of_chunks.count(), of_groups.count()), threads);
    const auto nothing = [](const auto&...) {};  // chunks and sweeps write to places of their own
    const auto no_local = [] { return nullptr; };
    for (std::size_t done = 0; done < chunks.count(); done += round) {
        const std::size_t count = std::min(round, chunks.count() - done);
        for_each_share(
            Shares(count, threads),
            team,
            no_local,
            nothing,
            [&](auto, std::size_t j) { run_chunk(done, j); },
            nothing);
        for_each_share(
            Shares(of_groups.count(), threads),
            team,
            no_local,
            nothing,
            [&](auto, std::size_t share) {
                const auto s = static_cast<unsigned>(share);
                for (std::size_t j = 0; j < count; ++j) {
                    for (std::size_t g = of_groups.begin(s); g < of_groups.end(s); ++g) {
                        sweep_chunk(locals[s], g, done, j);
                    }
                }
            },
            nothing);
    }
}

}  // namespace VEMKN
