#pragma once

#include <memory>

#include "eval/forward.h"
#include "model/params.h"
#include "model/transposed_weights.h"

// The backward sweep, forward() read from the bottom. With Abar the adjoint of a layer's output, every layer is
//
//     Zbar = adj_act(Z, Abar)         of (2)
//     gb   = colsum(Zbar)             of (1)
//     gW   = H^T Zbar                 of (1)
//     Hbar = Zbar W^T                 of (1), the Abar of the layer before; not formed for the first step, whose input is
//                                     a constant
//
// The adjoint of C falls into nmult column blocks, one a pass. A pass's output also feeds the next pass, so its adjoint
// is its block plus the Hbar that the next pass handed down; and the gradients of the hidden layers add up over passes.

namespace VEMKN {

// What a sweep works in, reused from slice to slice; no two layers share a matrix.
template <class Model>
struct SweepWorkspace {
    struct Layer {
        // Adjoint of the layer's input, of C for the output layer; the Zbar of the layer before overwrites it.
        typename Model::Adjoint Hbar;
        typename Model::AdjointVector gb;
    };

    void set_layers(std::size_t n)
    {
        if (layers.size() != n) layers.resize(n);
    }

    std::vector<Layer> layers;
    typename Model::Adjoint output_Zbar;
    typename Model::Adjoint pass_Hbar;  // with more than one pass: adjoint of a pass's output
    typename Model::Saved panel;        // rows of a product on their way into a sum
    // With more than one pass: the gradient of a slice.
    std::unique_ptr<typename Model::Gradient> slice_grad;
};

// Gradients of one layer from its input and Zbar; overwritten or added to.
template <NetworkModel Model, class Input>
void adj_layer(const Input& H,
               const typename Model::Adjoint& Zbar,
               Into into,
               SweepWorkspace<Model>& work,
               typename Model::AdjointVector& slice_gb,
               typename Model::Adjoint& gW,
               typename Model::AdjointVector& gb)
{
    const By by = products_with(gW);
    if (into == Into::add) {
        do_binmult_add(gW, transposed(H), Zbar, work.panel, by);
        add_colsum(Zbar, gb, slice_gb);
    } else {
        do_binmult(gW, transposed(H), Zbar, by);
        colsum(Zbar, gb);
    }
}

// Gradient of every weight and bias, from a cache that forward() filled and the adjoint Obar of the outputs. Every entry
// of grad is overwritten, or added to. The cache is only read: several sweeps may share it.
//
// To add, the gradient of a layer is formed first and then added, while it is in cache. With several passes a layer's
// gradient is a sum itself, formed apart. Sums of adjoints side by side go on over the slices instead, which come from the
// last to the first.
template <NetworkModel Model>
void backward(const Model& net,
              const TransposedWeights<Model>& transposes,
              const ForwardCache<typename Model::Matrix>& cache,
              const typename Model::Adjoint& Obar,
              SweepWorkspace<Model>& work,
              typename Model::Gradient& grad,
              Into into)
{
    if (Model::ONE_ADJOINT && into == Into::add && net.nmult > 1) {
        if (!work.slice_grad) work.slice_grad = std::make_unique<typename Model::Gradient>(grad);
        backward(net, transposes, cache, Obar, work, *work.slice_grad, Into::overwrite);
        do_add(grad, *work.slice_grad);
        return;
    }
    const std::size_t hidden = net.weights.size() - 1;
    std::size_t step = net.nmult * hidden;
    work.set_layers(hidden + 1);

    // The layer i that ran as this step, from the adjoint of its output. Zbar may be Abar.
    const auto sweep_layer = [&](std::size_t i, const auto& Abar, auto& Zbar, Into layer_into) {
        const auto gradients = [&](const auto& H) {
            auto& slice_gb = work.layers[i].gb;
            adj_layer(H, Zbar, layer_into, work, slice_gb, grad.weights[i], grad.biases[i]);
        };
        net.activation.adjoint(cache.Z(step), cache.saved(step), Abar, Zbar);
        if (i == hidden && net.nmult > 1) {
            gradients(cache.C);
        } else if (step == 0) {
            gradients(cache.X);
        } else {
            gradients(cache.H(step));
        }
    };

    sweep_layer(hidden, Obar, work.output_Zbar, into);
    if (step == 0) return;
    typename Model::Adjoint& Cbar = work.layers[hidden].Hbar;
    transposes.pass_down(net, hidden, work.output_Zbar, Cbar);
    const std::size_t width = Cbar.cols() / net.nmult;
    for (std::size_t pass = net.nmult; pass-- > 0;) {
        const bool last_pass = pass + 1 == net.nmult;
        typename Model::Adjoint* Hbar = &Cbar;
        if (net.nmult > 1 && last_pass) {
            Hbar = &work.pass_Hbar;
            take_columns(Cbar, pass * width, width, *Hbar);
        } else if (net.nmult > 1) {
            std::swap(work.layers[0].Hbar, work.pass_Hbar);
            Hbar = &work.pass_Hbar;
            add_columns(Cbar, pass * width, *Hbar);
        }
        for (std::size_t i = hidden; i-- > 0;) {
            --step;
            sweep_layer(i, *Hbar, *Hbar, last_pass ? into : Into::add);
            if (step > 0) transposes.pass_down(net, i, *Hbar, work.layers[i].Hbar);
            Hbar = &work.layers[i].Hbar;
        }
    }
}

}  // namespace VEMKN
