#pragma once

#include <optional>

#include "eval/forward.h"
#include "eval/turns.h"
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

// The turn of one slice, or of a run of slices, at the sums of a gradient, or that of the only one.
class SliceTurn {
public:
    SliceTurn() = default;

    SliceTurn(Turns& turns, std::size_t slice, std::size_t first_place = 0)
        : turns_(&turns), slice_(slice), first_place_(first_place)
    {
    }

    void await(std::size_t place) const
    {
        if (turns_ != nullptr) turns_->await(first_place_ + place, slice_);
    }

    void pass_on(std::size_t place) const
    {
        if (turns_ != nullptr) turns_->pass_on(first_place_ + place, slice_);
    }

private:
    Turns* turns_ = nullptr;
    std::size_t slice_ = 0;
    std::size_t first_place_ = 0;
};

// What a sweep works in, reused from slice to slice; no two layers share a matrix.
template <class Model>
struct SweepWorkspace {
    struct Layer {
        // Adjoint of the layer's input, of C for the output layer; the Zbar of the layer before overwrites it.
        typename Model::Adjoint Hbar;
    };

    void set_layers(std::size_t n)
    {
        if (layers.size() != n) layers.resize(n);
    }

    CallList<Layer> layers;
    typename Model::Adjoint output_Zbar;
    typename Model::Adjoint pass_Hbar;  // with more than one pass: adjoint of a pass's output
    typename Model::Saved room;         // what a sum is formed in before it is added
    // With more than one pass: the gradient of a slice.
    std::optional<typename Model::Gradient> slice_grad;
};

// Gradients of one layer from its input and Zbar, whole or some rows of both; overwritten, or added to in parts of so many rows.
template <NetworkModel Model, class Input, class OutputAdjoint>
void adj_layer(const Input& H,
               const OutputAdjoint& Zbar,
               Into into,
               std::size_t part,
               typename Model::Saved& room,
               typename Model::Adjoint& gW,
               typename Model::AdjointVector& gb)
{
    const By by = products_with(gW);
    if (into == Into::add) {
        do_binmult_add(gW, transposed(H), Zbar, room, by, part);
        add_colsum(Zbar, gb, part);
    } else {
        do_binmult(gW, transposed(H), Zbar, by);
        colsum(Zbar, gb);
    }
}

// Whether a pass through a layer is the first that is swept, and the last.
struct Pass {
    bool is_first, is_last;
};

// The sweep itself: Zbar of every step, from a cache that forward() filled and the adjoint Obar of the outputs. The cache is
// only read: several sweeps may share it.
//   layer_gradient(i, H, Zbar, pass) : takes the input and the Zbar of a layer, for the hidden ones pass by pass, from the last to
//                                      the first
template <NetworkModel Model, class LayerGradient>
void sweep(const Model& net,
           const TransposedWeights<Model>& transposes,
           const ForwardCache<typename Model::Matrix>& cache,
           const typename Model::Adjoint& Obar,
           SweepWorkspace<Model>& work,
           const LayerGradient& layer_gradient)
{
    const std::size_t hidden = net.weights.size() - 1;
    std::size_t step = net.nmult * hidden;
    work.set_layers(hidden + 1);

    // The layer i that ran as this step, from the adjoint of its output. Zbar may be Abar.
    const auto sweep_layer = [&](std::size_t i, const auto& Abar, auto& Zbar, const Pass& pass) {
        net.activation.adjoint(cache.Z(step), cache.saved(step), Abar, Zbar);
        if (i == hidden && net.nmult > 1) {
            layer_gradient(i, cache.C, Zbar, pass);
        } else if (step == 0) {
            layer_gradient(i, cache.X, Zbar, pass);
        } else {
            layer_gradient(i, cache.H(step), Zbar, pass);
        }
    };

    sweep_layer(hidden, Obar, work.output_Zbar, {true, true});
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
            sweep_layer(i, *Hbar, *Hbar, {last_pass, pass == 0});
            if (step > 0) transposes.pass_down(net, i, *Hbar, work.layers[i].Hbar);
            Hbar = &work.layers[i].Hbar;
        }
    }
}

// Gradient of every weight and bias. Every entry of grad is overwritten, or added to; sums of adjoints side by side in the
// slice's turn.
//
// To add, the gradient of a layer is formed first and then added. With several passes a layer's gradient is a sum itself,
// formed apart. Sums of adjoints side by side go on over the slices instead, which come from the last to the first.
template <NetworkModel Model>
void backward(const Model& net,
              const TransposedWeights<Model>& transposes,
              const ForwardCache<typename Model::Matrix>& cache,
              const typename Model::Adjoint& Obar,
              SweepWorkspace<Model>& work,
              typename Model::Gradient& grad,
              Into into,
              const SliceTurn& turn = {})
{
    if (Model::ONE_ADJOINT && into == Into::add && net.nmult > 1) {
        if (!work.slice_grad) work.slice_grad.emplace(grad);
        backward(net, transposes, cache, Obar, work, *work.slice_grad, Into::overwrite);
        return do_add(grad, *work.slice_grad);
    }
    const auto layer_gradient =
        [&](std::size_t i, const auto& H, const auto& Zbar, const Pass& pass) {
            if (pass.is_first) turn.await(i);
            adj_layer<Model>(H,
                             Zbar,
                             pass.is_first ? into : Into::add,
                             WHOLE,
                             work.room,
                             grad.weights[i],
                             grad.biases[i]);
            if (pass.is_last) turn.pass_on(i);
        };
    sweep(net, transposes, cache, Obar, work, layer_gradient);
}

// Adds the gradients of neighbouring slices from one sweep over their rows: each slice's as backward() does, one after the other.
// For networks of one pass.
template <NetworkModel Model>
void backward_together(const Model& net,
                       const TransposedWeights<Model>& transposes,
                       const ForwardCache<typename Model::Matrix>& cache,
                       const typename Model::Adjoint& Obar,
                       const Slices& slices,
                       SweepWorkspace<Model>& work,
                       typename Model::Gradient& grad)
{
    const auto layer_gradient = [&](std::size_t i, const auto& H, const auto& Zbar, const Pass&) {
        // As many at a time as the innermost cache holds.
        constexpr std::size_t NUMBERS = 2048;
        auto& gW = grad.weights[i];
        const std::size_t of_a_slice =
            slices.rows_of(0) * (gW.rows() + gW.cols()) * numbers_of_an_entry(gW);
        const std::size_t at_once =
            std::max<std::size_t>(NUMBERS / std::max<std::size_t>(of_a_slice, 1), 1);
        for (std::size_t j = 0; j < slices.count(); j += at_once) {
            const RowRange rows = slices.rows(j, std::min(at_once, slices.count() - j));
            adj_layer<Model>(rows_of(H, rows),
                             rows_of(Zbar, rows),
                             Into::add,
                             slices.rows_of(0),
                             work.room,
                             gW,
                             grad.biases[i]);
        }
    };
    sweep(net, transposes, cache, Obar, work, layer_gradient);
}

// The same of each slice in a place of its own, overwritten.
//   slices : of the rows        grad_of(j) : where the gradient of slice j goes
template <NetworkModel Model, class GradOf>
void backward_apart(const Model& net,
                    const TransposedWeights<Model>& transposes,
                    const ForwardCache<typename Model::Matrix>& cache,
                    const typename Model::Adjoint& Obar,
                    const Slices& slices,
                    SweepWorkspace<Model>& work,
                    const GradOf& grad_of)
{
    const auto layer_gradient = [&](std::size_t i, const auto& H, const auto& Zbar, const Pass&) {
        for (std::size_t j = 0; j < slices.count(); ++j) {
            const RowRange rows = slices.rows(j);
            typename Model::Gradient& grad = grad_of(j);
            adj_layer<Model>(rows_of(H, rows),
                             rows_of(Zbar, rows),
                             Into::overwrite,
                             WHOLE,
                             work.room,
                             grad.weights[i],
                             grad.biases[i]);
        }
    };
    sweep(net, transposes, cache, Obar, work, layer_gradient);
}

}  // namespace VEMKN
