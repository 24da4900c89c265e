#pragma once

#include "eval/forward.h"

// The backward sweep, forward() read from the bottom. With Hbar' the adjoint of a layer's output, every layer is
//
//     Zbar = adj_act(Z, Hbar')        of (2)
//     gb   = colsum(Zbar)             of (1)
//     gW   = H^T Zbar                 of (1)
//     Hbar = Zbar W^T                 of (1); not formed for the first step, whose input is a constant
//
// The adjoint of C falls into nmult column blocks, one a pass. A pass's output also feeds the next pass, so its adjoint
// is its block plus the Hbar that the next pass handed down; and the gradients of the hidden layers add up over passes.

namespace VEMKN {

// a += b, layer by layer.
template <class Model>
void do_add(Model& a, const Model& b)
{
    for (std::size_t i = 0; i < b.weights.size(); ++i) {
        do_add(a.weights[i], b.weights[i]);
        do_add(a.biases[i], b.biases[i]);
    }
}

// The transposed weight matrices, copied once for all slices of a call and shared by its threads: Zbar W^T is then a
// product of two factors as they stand, which the small-product kernels of BLAS are made for (docs/performance.md).
template <class Model>
class TransposedWeights {
public:
    // None of them: a single slice is not worth the copies.
    TransposedWeights() = default;

    explicit TransposedWeights(const Model& net)
    {
        for (const auto& W : net.weights) {
            transposed_.emplace_back();
            transpose(W, transposed_.back());
        }
    }

    // Hbar = Zbar W^T for layer i.
    void pass_down(const Model& net,
                   std::size_t i,
                   const typename Model::Matrix& Zbar,
                   typename Model::Matrix& Hbar) const
    {
        if (transposed_.empty()) {
            do_binmult(Hbar, Zbar, transposed(net.weights[i]));
        } else {
            do_mult(Zbar, transposed_[i], Hbar);
        }
    }

private:
    std::vector<typename Model::Matrix> transposed_;
};

// Working storage of a sweep, reused from slice to slice.
template <class Model>
struct Sweep {
    typename Model::Matrix Zbar;
    typename Model::Matrix Hbar;
    typename Model::Matrix Cbar;
    typename Model::Matrix gW;
    typename Model::Vector gb;
};

// Gradients of one layer from its input and Zbar; overwritten, or added to those of the passes swept before.
template <class Model, class Input>
void adj_layer(const Input& H,
               const typename Model::Matrix& Zbar,
               bool add,
               Sweep<Model>& work,
               typename Model::Matrix& gW,
               typename Model::Vector& gb)
{
    if (add) {
        do_binmult(work.gW, transposed(H), Zbar);
        colsum(Zbar, work.gb);
        do_add(gW, work.gW);
        do_add(gb, work.gb);
    } else {
        do_binmult(gW, transposed(H), Zbar);
        colsum(Zbar, gb);
    }
}

// Gradient of every weight and bias, from a tape that forward() filled and the adjoint Obar of the outputs. Every entry
// of grad is overwritten. The tape is only read: several sweeps may share it.
template <class Model>
void backward(const Model& net,
              const TransposedWeights<Model>& transposes,
              const Tape<typename Model::Matrix>& tape,
              const typename Model::Matrix& Obar,
              Sweep<Model>& work,
              Model& grad)
{
    const std::size_t hidden = net.weights.size() - 1;
    std::size_t step = net.nmult * hidden;

    // The layer i that ran as this step, from the adjoint of its output.
    const auto sweep_layer = [&](std::size_t i, const auto& Hbar, bool add) {
        net.activation.adjoint(tape.Z(step), Hbar, work.Zbar);
        if (i == hidden && net.nmult > 1) {
            adj_layer(tape.C, work.Zbar, add, work, grad.weights[i], grad.biases[i]);
        } else if (step == 0) {
            adj_layer(tape.X, work.Zbar, add, work, grad.weights[i], grad.biases[i]);
        } else {
            adj_layer(tape.H(step), work.Zbar, add, work, grad.weights[i], grad.biases[i]);
        }
    };

    sweep_layer(hidden, Obar, false);
    if (step == 0) return;
    transposes.pass_down(net, hidden, work.Zbar, work.Cbar);
    const std::size_t width = work.Cbar.cols() / net.nmult;
    for (std::size_t pass = net.nmult; pass-- > 0;) {
        const bool last_pass = pass + 1 == net.nmult;
        if (net.nmult == 1) {
            std::swap(work.Hbar, work.Cbar);
        } else if (last_pass) {
            take_columns(work.Cbar, pass * width, width, work.Hbar);
        } else {
            add_columns(work.Cbar, pass * width, work.Hbar);
        }
        for (std::size_t i = hidden; i-- > 0;) {
            --step;
            sweep_layer(i, work.Hbar, !last_pass);
            if (step > 0) transposes.pass_down(net, i, work.Zbar, work.Hbar);
        }
    }
}

}  // namespace VEMKN
