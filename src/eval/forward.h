#pragma once

#include <algorithm>
#include <vector>

#include "eval/input_width.h"
#include "eval/slices.h"
#include "model/blas.h"
#include "model/model.h"

// The forward pass. With H(0) the input rows, padded with zero columns to the height of the first weight matrix, every
// layer is
//
//     Z = H W + b        (1)
//     H' = act(Z)        (2)
//
// the last one too. The hidden layers run nmult times in a chain; the outputs of the passes stand side by side in C,
// the input of the last layer (with one pass C is that pass's output, and no copy is made).

namespace VEMKN {

// What one run over a slice of rows computes, step by step: a step is one layer of one pass, in the order in which they
// run. With keep, all of it stays for a backward sweep; rolling, a pass writes over the pass before the last. A tape is
// reused from slice to slice, and no two layers share a matrix, so that storage is allocated at the first slice only.
template <class Matrix>
class Tape {
public:
    enum class Memory { keep, rolling };

    explicit Tape(Memory memory = Memory::keep) : keep_(memory == Memory::keep) {}

    // Gets the tape ready for `passes` passes through `hidden` hidden layers and the output layer.
    void set_steps(std::size_t hidden, std::size_t passes)
    {
        last_ = hidden * passes;
        turn_ = hidden * (keep_ ? passes : std::min<std::size_t>(passes, 2));
        if (steps_.size() != turn_ + 1) steps_.resize(turn_ + 1);
    }

    // Pre-activation of a step. A rolling tape has none: the step's output serves as both.
    Matrix& Z(std::size_t step, Matrix& output) { return keep_ ? at(step).Z : output; }

    const Matrix& Z(std::size_t step) const { return at(step).Z; }

    // What the activation kept for its adjoint.
    Kept<Matrix>& kept(std::size_t step) { return at(step).kept; }

    const Kept<Matrix>& kept(std::size_t step) const { return at(step).kept; }

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
        Kept<Matrix> kept;
        Matrix output;
    };

    // Hidden steps take turns; the output layer has the last place to itself.
    Step& at(std::size_t step) { return steps_[step == last_ ? turn_ : step % turn_]; }

    const Step& at(std::size_t step) const { return steps_[step == last_ ? turn_ : step % turn_]; }

    bool keep_;
    std::size_t last_ = 0;
    std::size_t turn_ = 0;
    std::vector<Step> steps_;
    Kept<Matrix> padding_;
};

// (1) and (2) for one layer. Z may be out, but out not the input. Input is a matrix of the model, or rows of constants.
template <class Model, class Input>
void layer(const Model& net,
           std::size_t i,
           const Input& H,
           typename Model::Matrix& Z,
           typename Model::Matrix& out,
           typename Model::Kept& kept)
{
    do_mult(H, net.weights[i], Z);
    do_binplus(Z, Z, net.biases[i]);
    net.activation.forward(Z, out, kept);
}

// Runs the network over rows and leaves the outputs in tape.O.
template <class Model>
void forward(const Model& net, const RowsView& rows, Tape<typename Model::Matrix>& tape)
{
    const std::size_t hidden = net.weights.size() - 1;
    tape.set_steps(hidden, net.nmult);
    tape.X = tape.padded(rows, net.weights[0].rows());

    std::size_t step = 0;
    const auto run_layer = [&](std::size_t i, const auto& H, typename Model::Matrix& out) {
        layer(net, i, H, tape.Z(step, out), out, tape.kept(step));
    };
    const auto run_next_layer = [&](std::size_t i, typename Model::Matrix& out) {
        if (step == 0) {
            run_layer(i, tape.X, out);
        } else {
            run_layer(i, tape.H(step), out);
        }
    };
    for (std::size_t pass = 0; pass < net.nmult; ++pass) {
        for (std::size_t i = 0; i < hidden; ++i) {
            run_next_layer(i, tape.H(step + 1));
            ++step;
        }
        if (net.nmult > 1) {
            const auto& H = tape.H(step);
            if (pass == 0) shape_columns(tape.C, H, net.nmult);
            put_columns(tape.C, pass * H.cols(), H);
        }
    }
    if (net.nmult > 1) {
        run_layer(hidden, tape.C, tape.O);
    } else {
        run_next_layer(hidden, tape.O);
    }
}

// Rows that go through together where no slice size is told: their intermediates stay in cache.
inline constexpr std::int32_t ROWS_IN_CACHE = 64;

// Outputs of the network, one row for each row of X, block by block on the calling thread.
//   X : rows x ncols, at most numin columns        result : rows x numout
template <class Model>
typename Model::Matrix computev(const Model& net, const RowsView& X)
{
    using Matrix = typename Model::Matrix;
    check_input_width(net, X.cols);
    Tape<Matrix> tape(Tape<Matrix>::Memory::rolling);
    const Slices blocks(X.rows, ROWS_IN_CACHE);
    if (blocks.single()) {
        forward(net, X, tape);
        return std::move(tape.O);
    }
    Matrix outputs;
    for (std::size_t b = 0; b < blocks.number(); ++b) {
        forward(net, blocks.cut(X, b), tape);
        if (b == 0) shape_rows(outputs, tape.O, X.rows);
        put_rows(outputs, blocks.first_row(b), tape.O);
    }
    return outputs;
}

}  // namespace VEMKN
