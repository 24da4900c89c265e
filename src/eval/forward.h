#pragma once

#include <algorithm>

#include "eval/concepts.h"
#include "eval/slices.h"
#include "model/blas.h"
#include "model/model.h"
#include "runtime/traps.h"

// The forward pass. With H the input rows, padded with zero columns to the height of the first weight matrix, every layer is
//
//     Z = H W + b        (1)
//     A = act(Z)         (2)
//
// the last one too, and A is the H of the next layer. The hidden layers run nmult times in a chain; the outputs of the
// passes stand side by side in C, the input of the last layer (with one pass C is that pass's output, and no copy is made).

namespace VEMKN {

// What one run over a slice of rows computes, step by step: a step is one layer of one pass, in the order in which they
// run. With Memory::whole all of it stays for a backward sweep; with Memory::rolling a pass writes over the pass before the
// last. A cache is reused from slice to slice, and no two layers share a matrix, so that storage is allocated
// at the first slice only, but for the matrix that a caller takes in exchange.
template <class Matrix>
class ForwardCache {
public:
    enum class Memory { whole, rolling };

    explicit ForwardCache(Memory memory = Memory::whole) : whole_(memory == Memory::whole) {}

    // Gets the cache ready for `passes` passes through `hidden` hidden layers and the output layer.
    void set_steps(std::size_t hidden, std::size_t passes)
    {
        last_ = hidden * passes;
        const std::size_t remembered = whole_ ? passes : std::min<std::size_t>(passes, 2);
        turn_ = std::max<std::size_t>(hidden * remembered, 1);
        if (steps_.size() != turn_ + 1) steps_.resize(turn_ + 1);
    }

    // Pre-activation of a step. A rolling cache has none: the step's output serves as both.
    Matrix& Z(std::size_t step, Matrix& output) { return whole_ ? at(step).Z : output; }

    const Matrix& Z(std::size_t step) const { return at(step).Z; }

    // What the activation saved for its adjoint.
    Plain<Matrix>& saved(std::size_t step) { return at(step).saved; }

    const Plain<Matrix>& saved(std::size_t step) const { return at(step).saved; }

    // Input of a step but the first, whose input is X: the output of the hidden step before.
    Matrix& H(std::size_t step) { return at(step - 1).output; }

    const Matrix& H(std::size_t step) const { return at(step - 1).output; }

    // Padded input rows, a constant: the caller's own rows where nothing had to be padded.
    RowsView X;
    Matrix C;  // outputs of all passes side by side; used with more than one pass only
    Matrix O;  // outputs of the network

    // rows x width, a copy of rows with zero columns added; rows itself when it is that wide.
    RowsView padded(const RowsView& rows, std::size_t width)
    {
        if (rows.cols == width) return rows;
        padding_.resize(rows.rows, width);
        padding_.store() = 0.0;
        for (std::size_t r = 0; r < rows.rows; ++r) {
            std::copy_n(rows.data + r * rows.cols, rows.cols, padding_.data() + r * width);
        }
        return padding_;
    }

private:
    struct Step {
        Matrix Z;
        Plain<Matrix> saved;
        Matrix output;
    };

    // Hidden steps take turns; the output layer has the last place to itself.
    Step& at(std::size_t step) { return steps_[step == last_ ? turn_ : step % turn_]; }

    const Step& at(std::size_t step) const { return steps_[step == last_ ? turn_ : step % turn_]; }

    bool whole_;
    std::size_t last_ = 0;
    std::size_t turn_ = 0;
    CallList<Step> steps_;
    Plain<Matrix> padding_;
};

// (1) and (2) for one layer. Z may be A, but A not the input. Input is a matrix of the model, or rows of constants.
template <NetworkModel Model, class Input>
void layer(const Model& net,
           std::size_t i,
           const Input& H,
           typename Model::Matrix& Z,
           typename Model::Matrix& A,
           typename Model::Saved& saved)
{
    do_mult(H, net.weights[i], Z, products_with(net.weights[i]));
    do_binplus(Z, Z, net.biases[i]);
    net.activation.forward(Z, A, saved);
}

// Runs the network over rows and leaves the outputs in cache.O.
template <NetworkModel Model>
void forward(const Model& net, const RowsView& rows, ForwardCache<typename Model::Matrix>& cache)
{
    const std::size_t hidden = net.weights.size() - 1;
    cache.set_steps(hidden, net.nmult);
    cache.X = cache.padded(rows, net.weights[0].rows());

    std::size_t step = 0;
    const auto run_layer = [&](std::size_t i, const auto& H, typename Model::Matrix& out) {
        layer(net, i, H, cache.Z(step, out), out, cache.saved(step));
    };
    const auto run_next_layer = [&](std::size_t i, typename Model::Matrix& out) {
        if (step == 0) {
            run_layer(i, cache.X, out);
        } else {
            run_layer(i, cache.H(step), out);
        }
    };
    for (std::size_t pass = 0; pass < net.nmult; ++pass) {
        for (std::size_t i = 0; i < hidden; ++i) {
            run_next_layer(i, cache.H(step + 1));
            ++step;
        }
        if (net.nmult > 1) {
            const auto& H = cache.H(step);
            if (pass == 0) shape_columns(cache.C, H, net.nmult);
            put_columns(cache.C, pass * H.cols(), H);
        }
    }
    if (net.nmult > 1) {
        run_layer(hidden, cache.C, cache.O);
    } else {
        run_next_layer(hidden, cache.O);
    }
}

// Outputs of the network, one row for each row of X, chunk by chunk on the calling thread.
//   X : rows x ncols, of a width that was checked (eval/input_width.h)        result : rows x numout
template <NetworkModel Model>
typename Model::Matrix computev(const Model& net, const RowsView& X)
{
    using Matrix = typename Model::Matrix;
    using Cache = ForwardCache<Matrix>;
    const Slices chunks(X.rows, ROWS_OF_A_CHUNK);
    if (chunks.single()) {
        Cache cache(Cache::Memory::rolling);
        forward(net, X, cache);
        return std::move(cache.O);
    }
    Matrix outputs;
    Cache cache(Cache::Memory::rolling);
    for (std::size_t c = 0; c < chunks.count(); ++c) {
        forward(net, chunks.cut(X, c), cache);
        if (c == 0) shape_rows(outputs, cache.O, X.rows);
        put_rows(outputs, chunks.first_row(c), cache.O);
        look_at_flags();
    }
    return outputs;
}

}  // namespace VEMKN
