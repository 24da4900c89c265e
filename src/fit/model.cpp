#include "fit/model.h"

#include <algorithm>

#include "fit/failure.h"
#include "fit/network.h"
#include "vemkn_fit.h"

namespace vemknfit {

std::size_t number_of_weights(Eigen::Index inputs,
                              const std::vector<unsigned>& hidden,
                              std::size_t outputs)
{
    auto before = static_cast<std::size_t>(inputs);
    std::size_t number = 0;
    for (const unsigned width : hidden) {
        number += (before + 1) * width;
        before = width;
    }
    return number + (before + 1) * outputs;
}

Matrix scaled_inputs(const InputMap& map, const Matrix& columns)
{
    Matrix inputs = map.apply(columns);
    for (Eigen::Index r = 0; r < inputs.rows(); ++r) {
        if (!inputs.row(r).allFinite())
            throw Failure(VEMKN_FIT_DATA,
                          "x: row " + std::to_string(r + 1) + " overflows when it is scaled",
                          r);
    }
    return inputs;
}

vemkn::Network Model::network() const
{
    std::vector<unsigned> sizes{static_cast<unsigned>(InputMap(inputs).width())};
    sizes.insert(sizes.end(), hidden.begin(), hidden.end());
    vemkn::Network net({.numin = sizes.front(),
                        .numout = static_cast<unsigned>(targets.size()),
                        .sizes = sizes,
                        .activation = activation,
                        .norm = "sum"});
    net.set_quiet(true);
    return net;
}

Matrix Model::predict(const vemkn::Network& network, const Matrix& columns) const
{
    const Matrix x = scaled_inputs(InputMap(inputs), columns);
    const vemkn::Values outputs =
        network.compute({weights.data(), static_cast<std::size_t>(weights.size())},
                        {x.data(), static_cast<std::size_t>(x.size())});
    Matrix predictions = Eigen::Map<const Matrix>(
        outputs.values.data(), columns.rows(), static_cast<Eigen::Index>(targets.size()));
    Eigen::Index t = 0;
    for (const Target& target : targets) {
        auto column = predictions.col(t++).array();
        column = column * (3.0 * target.core) + target.shift;
    }
    return predictions;
}

Vector Model::errors(const vemkn::Network& network, const Matrix& columns) const
{
    constexpr Eigen::Index AT_A_TIME = 1024;
    if (!uncertainty)
        throw Failure(VEMKN_FIT_UNCERTAIN,
                      "the model has no standard errors: it is not from a robust fit");
    if (uncertainty->covariance.size() == 0)
        throw Failure(VEMKN_FIT_UNCERTAIN, uncertainty->why_none);
    const Matrix x = scaled_inputs(InputMap(inputs), columns);
    Vector errors(x.rows());
    for (Eigen::Index from = 0; from < x.rows(); from += AT_A_TIME) {
        const Eigen::Index some = std::min(AT_A_TIME, x.rows() - from);
        const Matrix gradients =
            gradients_of(network, weights, x.middleRows(from, some), Vector::Zero(some));
        // What rounding may take below zero.
        const Vector variances =
            (gradients * uncertainty->covariance).cwiseProduct(gradients).rowwise().sum();
        errors.segment(from, some) =
            3.0 * targets.front().core * variances.cwiseMax(0.0).cwiseSqrt();
    }
    return errors;
}

}  // namespace vemknfit
