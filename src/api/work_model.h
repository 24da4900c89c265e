#pragma once

#include "api/handle.h"
#include "fad/linear.h"
#include "fad/products.h"
#include "fad/seeding.h"
#include "model/params.h"
#include "network/function_tables.h"

// The models that calls compute with: the networks of a handle over aligned arrays. Every call makes its own.

namespace VEMKN {

using WorkModel = NNTemplate<WorkMatrix, AlignedArray, double>;
using CotangentsModel = NNTemplate<WorkMatrix, AlignedArray, double, BlockRow>;
using CarrierWorkModel = NNTemplate<yafad::Bundle, yafad::Bundle, yafad::FO::Dynamic::Active<1>>;

// The same network over other containers: its functions and numbers, without weights and biases.
template <class Work, class Model>
Work work_model(const Model& net)
{
    Work work;
    work.numin = net.numin;
    work.numout = net.numout;
    work.nlayers = net.nlayers;
    work.nmult = net.nmult;
    work.batch = net.batch;
    work.threads = net.threads;
    work.activation = activation_named<Work>(net.activation_name);
    set_norm_named(net.norm_name, work);
    work.weights.resize(net.weights.size());
    work.biases.resize(net.biases.size());
    return work;
}

// The caller's weights, or in place of a null w the handle's own ones: those of its double model.
class Weights {
public:
    Weights(const VEMKNInfo& net, const double* w)
    {
        if (w == nullptr) own_ = getweights(net.model);
        data_ = w == nullptr ? std::begin(own_) : w;
    }

    Weights(const Weights&) = delete;
    Weights& operator=(const Weights&) = delete;

    const double* data() const { return data_; }

private:
    std::valarray<double> own_;
    const double* data_;
};

// The network at the caller's weights, over doubles.
template <class Work>
Work with_weights(const VEMKNInfo& net, const double* w)
{
    Work model = work_model<Work>(net.model);
    for (std::size_t i = 0; i < model.weights.size(); ++i) {
        const MatrixTemplate<double>& W = net.model.weights[i];
        model.weights[i].resize(W.rows(), W.cols());
        set_size(model.biases[i], W.cols());
    }
    setweights(model, Weights(net, w).data());
    return model;
}

// The same over carriers, each weight with the caller's tangents v as derivatives.
inline CarrierWorkModel with_tangents(const VEMKNInfo& net,
                                      const yafad::Seeding& seeding,
                                      const double* w,
                                      const double* v)
{
    CarrierWorkModel model = work_model<CarrierWorkModel>(net.derivative_model);
    for (std::size_t i = 0; i < model.weights.size(); ++i) {
        const yafad::MatrixCarrier& W = net.derivative_model.weights[i];
        model.weights[i].set_shape(W.rows(), W.cols(), seeding.tangents());
        model.biases[i].set_shape(1, W.cols(), seeding.tangents());
    }
    const Weights weights(net, w);
    for_each_parameter(model, [&](yafad::Bundle& part, std::size_t first) {
        seeding.seed(part, first, weights.data(), v);
    });
    return model;
}

}  // namespace VEMKN
