#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>
#include <vemkn.hpp>

#include "fit/input_map.h"
#include "fit/uncertainty.h"

namespace vemknfit {

// Of a network: biases too.
std::size_t number_of_weights(Eigen::Index inputs,
                              const std::vector<unsigned>& hidden,
                              std::size_t outputs);

// Throws a Failure that names the row where one overflows.
Matrix scaled_inputs(const InputMap& map, const Matrix& columns);

// A target and the way back to its units: shift + 3 core output.
struct Target {
    std::string name{};
    double core = 1.0;
    double shift = 0.0;
};

// What a fit says of itself.
struct Summary {
    double objective = 0.0;    // summed over the rows, with what the weights cost
    double gradient = 0.0;     // norm of its gradient
    std::uint64_t beyond = 0;  // rows beyond six cores
    bool settled = false;
    std::vector<std::string> notes{};
};

// All that predictions of new rows need, and how it was found.
struct Model {
    std::vector<unsigned> hidden{};
    std::string activation{};
    std::vector<ColumnRule> inputs{};
    std::vector<Target> targets{};
    Vector weights{};
    std::string method{}, norm{};
    std::optional<double> decay{};
    std::uint64_t seed = 0;
    std::uint64_t rows = 0;  // that it was fitted to
    std::optional<Summary> summary{};
    std::optional<Uncertainty> uncertainty{};  // of robust fits

    // The network that the weights are of.
    vemkn::Network network() const;

    // columns: rows x inputs in the order of the rules; rows x targets, not finite where a row is too far out for the network.
    // Throws Failure where one overflows before that.
    Matrix predict(const vemkn::Network& network, const Matrix& columns) const;

    // Standard errors of the curve at the same rows. Throws Failure where the model has none.
    Vector errors(const vemkn::Network& network, const Matrix& columns) const;
};

}  // namespace vemknfit
