#pragma once

#include "api/params.h"
#include "eval/forward.h"
#include "eval/shares.h"

namespace VEMKN {

// Residuals of one slice, outputs minus targets, in tape.O.
template <class Model>
typename Model::Matrix& residuals(const Model& net,
                                  const RowsView& X,
                                  const RowsView& Y,
                                  Tape<typename Model::Matrix>& tape)
{
    forward(net, X, tape);
    subtract_rows(tape.O, Y);
    return tape.O;
}

// mean = the mean over the elements of R of their norm.
template <class Model>
void mean_norm(const Model& net, const typename Model::Matrix& R, typename Model::SValue& mean)
{
    net.summing_norm.forward(R, mean);
    mean /= static_cast<double>(R.size());
}

template <class Model>
typename Model::SValue mean_norm(const Model& net, const typename Model::Matrix& R)
{
    typename Model::SValue mean(0.0);
    mean_norm(net, R, mean);
    return mean;
}

// Objective of a batch: the mean norm of its residuals.
//   X : n x nin, at most numin columns        Y : n x nout
// Slices are evaluated on their own, weighted by their number of elements and summed up by share.
template <class Model>
typename Model::SValue objv(const Model& net, const RowsView& X, const RowsView& Y)
{
    using Matrix = typename Model::Matrix;
    using SValue = typename Model::SValue;
    check_input_width(net, X.cols);

    struct Local {
        Tape<Matrix> tape{Tape<Matrix>::Memory::rolling};
        SValue part{0.0};
        SValue sum{0.0};
    };

    const auto slice_mean = [&](Local& local, const RowsView& Xs, const RowsView& Ys) -> SValue& {
        mean_norm(net, residuals(net, Xs, Ys, local.tape), local.part);
        return local.part;
    };
    const Slices slices(X.rows, net.batch);
    if (slices.single()) {
        Local local;
        return slice_mean(local, X, Y);
    }

    SValue total(0.0);
    for_each_share(
        Shares(slices.number(), net.threads),
        net.threads,
        [] { return Local(); },
        [](Local& local) { local.sum = SValue(0.0); },
        [&](Local& local, std::size_t s) {
            const RowsView Ys = slices.cut(Y, s);
            SValue& part = slice_mean(local, slices.cut(X, s), Ys);
            part *= static_cast<double>(Ys.size());
            local.sum += part;
        },
        [&](const Local& local) { total += local.sum; });
    total /= static_cast<double>(Y.size());
    return total;
}

// The element norm of every residual of a batch.
//   X, Y : as objv        put(part, first) : takes those of a slice, row by row, the first of them being element `first` of
//                         n*nout; several threads call it at the same time
template <class Model, class Put>
void element_norms(const Model& net, const RowsView& X, const RowsView& Y, const Put& put)
{
    using Matrix = typename Model::Matrix;
    check_input_width(net, X.cols);

    const Slices slices(X.rows, net.batch);

    struct Local {
        Tape<Matrix> tape{Tape<Matrix>::Memory::rolling};
        typename Model::Vector part;
    };

    for_each_share(
        Shares(slices.number(), net.threads),
        net.threads,
        [] { return Local(); },
        [](Local&) {},
        [&](Local& local, std::size_t s) {
            const Matrix& R = residuals(net, slices.cut(X, s), slices.cut(Y, s), local.tape);
            if (local.part.size() != R.size()) local.part = vector_like(R);
            net.element_norm.forward(R, local.part);
            put(local.part, slices.first_row(s) * Y.cols);
        },
        [](const Local&) {});  // slices write disjoint elements: nothing to merge
}

}  // namespace VEMKN
