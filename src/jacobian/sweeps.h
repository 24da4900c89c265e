#pragma once

#include <valarray>

#include "adjoint/objective.h"
#include "jacobian/cotangent_groups.h"

namespace VEMKN {

// Adjoint of the outputs for the cotangent U of the element norms of R.
//   U : shape of R, a constant        Obar : overwritten
template <class Matrix, class Model>
void adj_element_norms(const Model& net, const Matrix& R, const RowsView& U, Matrix& Obar)
{
    Obar.resize(U.rows, U.cols);
    std::copy_n(U.data, U.size(), Obar.data());
    net.element_norm.adjoint(R, asVector(Obar), Obar);
}

// Vector-Jacobian product: the gradient of the sum over all elements of U times the element norm of the residual.
//   X : n x nin        Y, U : n x nout        R : overwritten with the residuals
//   grad : zeroed by the caller; a batch of one slice overwrites it, several slices are added
// U holds absolute numbers, not shares of a mean, so slices simply add up.
template <NetworkModel Model>
void adj_residuals(const Model& net,
                   const RowsView& X,
                   const RowsView& Y,
                   typename Model::Matrix& R,
                   const RowsView& U,
                   Model& grad)
{
    using Matrix = typename Model::Matrix;
    R.resize(X.rows, Y.cols);

    const auto adj_rows = [&](SliceWorkspace<Model>& work,
                              const RowsView& Xs,
                              const RowsView& Ys,
                              const RowsView& Us,
                              Model& rows_grad,
                              Into into) -> const Matrix& {
        const Matrix& slice_R = residuals(net, Xs, Ys, work.cache);
        adj_element_norms(net, slice_R, Us, work.outAdj);
        backward(net, *work.transposes, work.cache, work.outAdj, work.sweep, rows_grad, into);
        return slice_R;
    };
    const Slices slices(X.rows, net.batch);
    if (slices.single()) {
        const TransposedWeights<Model> none;
        SliceWorkspace<Model> work(none);
        R = adj_rows(work, X, Y, U, grad, Into::overwrite);
        return;
    }
    adj_slices(
        net,
        slices,
        [&](SliceWorkspace<Model> & work, std::size_t s, Model & share_grad) -> const auto& {
            const RowsView Xs = slices.cut(X, s), Ys = slices.cut(Y, s), Us = slices.cut(U, s);
            put_rows(R, slices.first_row(s), adj_rows(work, Xs, Ys, Us, share_grad, Into::add));
            return work.value;  // no value is asked for: it stays zero
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

// Several vector-Jacobian products: one forward pass, then a backward sweep for each group of cotangents, shared out over
// the threads.
//   X, Y, R : as adj_residuals
//   U : the cotangents, each n x nout        groups : as cotangent_groups deals them
//   grads : one for each group, made here: the gradients of its cotangents side by side
// Rows go through in chunks, every sweep of a share over one chunk before the next, so that the intermediates of a chunk
// are read while in cache.
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
        grads[g] = zero_gradients(net, groups.size(g));
    }

    struct Local {
        typename Model::Adjoint outAdj;
        SweepWorkspace<Model> sweep;
    };

    const Slices chunks(X.rows, ROWS_OF_A_CHUNK);
    const unsigned threads = sweeping_threads(net, X.rows);
    const std::size_t round = chunks_of_a_round(chunks.count(), threads);
    const TransposedWeights<Model> transposes(net);
    std::vector<ForwardCache<Matrix>> caches(std::min(round, chunks.count()));
    std::vector<Local> locals(groups.shares());

    // Chunk `first + j` has cache j.
    const auto run_chunk = [&](std::size_t first, std::size_t j) {
        const std::size_t c = first + j;
        const Matrix& chunk_R = residuals(net, chunks.cut(X, c), chunks.cut(Y, c), caches[j]);
        put_rows(R, chunks.first_row(c), chunk_R);
    };
    const auto sweep_chunk = [&](Local& local, std::size_t g, std::size_t first, std::size_t j) {
        if (groups.size(g) == 0) return;
        const std::size_t c = first + j;
        local.outAdj.set_shape(chunks.rows_of(c), Y.cols, groups.size(g));
        for (std::size_t i = 0; i < groups.size(g); ++i) {
            put_matrix(local.outAdj, i, chunks.cut(U[groups.begin(g) + i], c));
        }
        net.element_norm.adjoint(caches[j].O, local.outAdj, local.outAdj);
        backward(net, transposes, caches[j], local.outAdj, local.sweep, grads[g], Into::add);
    };
    const auto nothing = [](const auto&...) {};  // chunks and sweeps write to places of their own
    const auto no_local = [] { return nullptr; };
    for (std::size_t first = 0; first < chunks.count(); first += round) {
        const std::size_t count = std::min(round, chunks.count() - first);
        for_each_share(
            Shares(count, threads),
            threads,
            no_local,
            nothing,
            [&](auto, std::size_t j) { run_chunk(first, j); },
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
                        sweep_chunk(locals[share], first_group + i, first, j);
                    }
                }
            },
            nothing);
    }
}

}  // namespace VEMKN
