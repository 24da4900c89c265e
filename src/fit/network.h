#pragma once

#include <string>
#include <vector>
#include <vemkn.hpp>

#include "fit/matrix.h"

namespace vemknfit {

// Gradients of the normed residuals of a network with one output, row by row: rows x weights.
Matrix gradients_of(const vemkn::Network& network,
                    const Vector& w,
                    const Matrix& inputs,
                    const Vector& targets);

// A network with one output, one activation in every layer, and the losses that its residuals are given. Const functions may run
// at the same time. Weights are in the library's flat order. Threads share rows out and change no bit.
class Network {
public:
    Network(Eigen::Index inputs,
            const std::vector<Eigen::Index>& hidden,
            const std::string& activation = "softplus",
            unsigned threads = 1);

    Eigen::Index size() const { return static_cast<Eigen::Index>(likelihood_.numel()); }

    // Where the output layer begins: its bias, and then its weights.
    Eigen::Index output_layer() const { return output_layer_; }

    // 1 for a weight, 0 for a bias.
    const Vector& is_weight() const { return is_weight_; }

    // Widths from the inputs to the output.
    const std::vector<Eigen::Index>& widths() const { return widths_; }

    // inputs: rows x inputs; gives one number for each row.
    Vector outputs(const Vector& w, const Matrix& inputs) const;

    // The sum over rows of the negative log-likelihood of output - target, and its gradient. Infinite where the arithmetic
    // leaves the finite numbers.
    double likelihood(const Vector& w,
                      const Matrix& inputs,
                      const Vector& targets,
                      Vector& gradient) const;

    // Its gradients row by row: rows x size().
    Matrix likelihood_gradients(const Vector& w, const Matrix& inputs, const Vector& targets) const;

    // The Hessian of the same.
    Matrix likelihood_hessian(const Vector& w, const Matrix& inputs, const Vector& targets) const;

    // The gradient of the sum over rows of u times the output.
    Vector gradient(const Vector& w, const Matrix& inputs, const Vector& u) const;

    // Gradients of the outputs: rows x size().
    Matrix jacobian(const Vector& w, const Matrix& inputs) const;

private:
    std::vector<Eigen::Index> widths_;
    vemkn::Network likelihood_, sum_;
    Eigen::Index output_layer_ = 0;
    Vector is_weight_;
};

}  // namespace vemknfit
