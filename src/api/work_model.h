#pragma once

#include "api/handle.h"
#include "fad/linear.h"
#include "fad/products.h"
#include "fad/seeding.h"
#include "model/params.h"
#include "network/function_tables.h"

// The models that calls compute with: the network of a handle over views of the caller's weights, or over bundles. Every call
// makes its own.

namespace VEMKN {

using WorkModel = NNTemplate<WorkMatrix, AlignedArray, double, WorkMatrix, WeightsView, BiasView>;
using CotangentsModel =
    NNTemplate<WorkMatrix, AlignedArray, double, BlockRow, WeightsView, BiasView>;
using CarrierWorkModel = NNTemplate<yafad::Bundle, yafad::Bundle, yafad::WorkScalar>;

// The network of a handle over other containers: its functions and numbers, without weights and biases.
template <class Work>
Work work_model(const VEMKNInfo& net)
{
    Work work;
    work.numin = net.model.numin;
    work.numout = net.model.numout;
    work.nlayers = net.model.nlayers;
    work.nmult = net.model.nmult;
    work.batch = net.model.batch;
    work.threads = net.model.threads;
    set_functions(net.functions, work);
    work.weights.reserve(net.model.weights.size());
    work.biases.reserve(net.model.weights.size());
    return work;
}

// Where the parameters of a call lie: a bias vector or a weight matrix of the handle's double model, whose first element is that of
// a flat vector, in the caller's w, or in the handle itself in place of a null one.
template <class Part>
const double* where_lies(const Part& part, std::size_t first, const double* w)
{
    return w == nullptr ? elements(part) : w + first;
}

// The network over doubles, at the caller's weights, which are read where they lie.
template <class Work>
Work with_weights(const VEMKNInfo& net, const double* w)
{
    Work work = work_model<Work>(net);
    std::size_t first = 0;
    for (std::size_t i = 0; i < net.model.weights.size(); ++i) {
        const auto& b = net.model.biases[i];
        work.biases.emplace_back(where_lies(b, first, w), b.size());
        first += b.size();
        const auto& W = net.model.weights[i];
        work.weights.emplace_back(where_lies(W, first, w), W.rows(), W.cols());
        first += W.size();
    }
    return work;
}

// The same over carriers, each weight with the caller's tangents v as derivatives.
inline CarrierWorkModel with_tangents(const VEMKNInfo& net,
                                      const yafad::Seeding& seeding,
                                      const double* w,
                                      const double* v)
{
    CarrierWorkModel model = work_model<CarrierWorkModel>(net);
    std::size_t first = 0;
    const auto seed = [&](yafad::Bundle& part, const auto& of_handle) {
        seeding.seed(part, first, where_lies(of_handle, first, w), v);
        first += of_handle.size();
    };
    for (std::size_t i = 0; i < net.model.weights.size(); ++i) {
        const auto& W = net.model.weights[i];
        model.biases.emplace_back().set_shape(1, W.cols(), seeding.tangents());
        seed(model.biases[i], net.model.biases[i]);
        model.weights.emplace_back().set_shape(W.rows(), W.cols(), seeding.tangents());
        seed(model.weights[i], W);
    }
    return model;
}

}  // namespace VEMKN
