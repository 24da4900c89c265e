#pragma once

#include <algorithm>

#include "eval/forward.h"
#include "eval/slices.h"
#include "eval/team.h"

namespace VEMKN {

// Residuals of one slice, outputs minus targets, in cache.O.
template <NetworkModel Model>
typename Model::Matrix& residuals(const Model& net,
                                  const RowsView& X,
                                  const RowsView& Y,
                                  ForwardCache<typename Model::Matrix>& cache)
{
    forward(net, X, cache);
    subtract_rows(cache.O, Y);
    return cache.O;
}

// mean = the mean over the elements of R of their norm.
template <NetworkModel Model>
void mean_norm(const Model& net, const typename Model::Matrix& R, typename Model::SValue& mean)
{
    net.summing_norm.forward(R, mean);
    mean /= static_cast<double>(R.size());
}

template <NetworkModel Model>
typename Model::SValue mean_norm(const Model& net, const typename Model::Matrix& R)
{
    typename Model::SValue mean(0.0);
    mean_norm(net, R, mean);
    return mean;
}

// The norm of the residuals of neighbouring slices, each as a mean times its number of elements.
//   R : their rows, cut by slices        room : a matrix to work in        parts : one for each slice
template <NetworkModel Model>
void slice_norms(const Model& net,
                 const typename Model::Matrix& R,
                 const Slices& slices,
                 typename Model::Matrix& room,
                 typename Model::SValue* parts)
{
    for (std::size_t j = 0; j < slices.count(); ++j) {
        const typename Model::Matrix* slice_R = &R;
        if (!slices.single()) {
            take_rows(R, slices.rows(j), room);
            slice_R = &room;
        }
        mean_norm(net, *slice_R, parts[j]);
        parts[j] *= static_cast<double>(slice_R->size());
    }
}

// Objective of a batch: the mean norm of its residuals.
//   X : n x nin, of a width that was checked (eval/input_width.h)        Y : n x nout
// Slices are evaluated on their own, weighted by their number of elements and summed up in their order.
template <NetworkModel Model>
typename Model::SValue objv(const Model& net, const RowsView& X, const RowsView& Y)
{
    using Matrix = typename Model::Matrix;
    using SValue = typename Model::SValue;

    struct Local {
        ForwardCache<Matrix> cache{ForwardCache<Matrix>::Memory::rolling};
        Matrix slice_R;
        CallList<SValue> parts;  // of slices in a row
    };

    const Slices slices(X.rows, net.batch);
    SValue total(0.0);
    if (slices.single()) {
        Local local;
        mean_norm(net, residuals(net, X, Y, local.cache), total);
        return total;
    }

    // A thread of a team evaluates many slices in a row before it adds them in its turn.
    constexpr std::size_t MOST = 256;
    const std::size_t together =
        slices_together(net, slices, EVALUATED_FOR_AN_OUTPUT * numbers_of_an_entry(net.weights[0]));
    const TeamPermit team(slices.count(), worthwhile_threads(net, X.rows, 1));
    const Slices runs = runs_of(slices.count(), together, MOST, team);
    Turns turns(1, team);
    const auto evaluate = [&](Local& local, std::size_t run) {
        const std::size_t first = runs.first_row(run), n = runs.rows_of(run);
        if (local.parts.size() < n) local.parts.resize(n, SValue(0.0));
        for (std::size_t j = 0; j < n; j += together) {
            const std::size_t from = first + j, these = std::min(together, n - j);
            const RowsView Xs = slices.cut(X, from, these), Ys = slices.cut(Y, from, these);
            const Matrix& R = residuals(net, Xs, Ys, local.cache);
            slice_norms(net, R, slices.part(from, these), local.slice_R, &local.parts[j]);
        }
        turns.await(0, run);
        for (std::size_t j = 0; j < n; ++j) total += local.parts[j];
        turns.pass_on(0, run);
    };
    for_each_in_turn<Local>(runs.count(), team, turns, evaluate);
    total /= static_cast<double>(Y.size());
    return total;
}

// The norm of every element of R, row by row. norms takes their number.
template <NetworkModel Model>
void element_norm(const Model& net, const typename Model::Matrix& R, typename Model::Vector& norms)
{
    shape_vector(R, norms);
    net.element_norm.forward(R, norms);
}

// The element norm of every residual of a batch.
//   X, Y : as objv        put(part, first_row) : takes those of some rows, from that row of the batch on;
//                         several threads call it at the same time
template <NetworkModel Model, class Put>
void element_norms(const Model& net, const RowsView& X, const RowsView& Y, const Put& put)
{
    using Matrix = typename Model::Matrix;

    struct Local {
        ForwardCache<Matrix> cache{ForwardCache<Matrix>::Memory::rolling};
        typename Model::Vector part;
    };

    const Slices slices(X.rows, net.batch);
    const TeamPermit team(slices.count(), worthwhile_threads(net, X.rows, 1));
    const Slices pieces = pieces_of(
        net, slices, numbers_of_an_entry(net.weights[0]), static_cast<std::size_t>(team.size()));
    for_each_item<Local>(pieces.count(), team, [&](Local& local, std::size_t p) {
        const Matrix& R = residuals(net, pieces.cut(X, p), pieces.cut(Y, p), local.cache);
        element_norm(net, R, local.part);
        put(local.part, pieces.first_row(p));
    });
}

}  // namespace VEMKN
