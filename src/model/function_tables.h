#pragma once

#include <string_view>

#include "adjoint/activations.h"
#include "adjoint/norms.h"
#include "model/model.h"

// The functions that a description may name, one row each: add an activation or a norm here.

namespace VEMKN {

// Rows are compared in order. Deliberate: "softmax" is softplus, any unknown name is softplus without a word, and
// softplus_shifted shares the adjoint of softplus.
template <class Model>
typename Model::ActivationPair activation_named(std::string_view name)
{
    using Matrix = typename Model::Matrix;
    using Adjoint = typename Model::Adjoint;

    struct Row {
        std::string_view name;
        typename Model::ActivationPair pair;
    };

    // clang-format off
    static constexpr Row TABLE[] = {
        {"softplus",         {softplus<Matrix>,         adj_softplus<Matrix, Adjoint>}}, // log(1 + e^x)
        {"softmax",          {softplus<Matrix>,         adj_softplus<Matrix, Adjoint>}}, // log(1 + e^x)
        {"softplus_shifted", {softplus_shifted<Matrix>, adj_softplus<Matrix, Adjoint>}}, // log(1 + e^x)
        {"atan",             {act_atan<Matrix>,         adj_act_atan<Matrix, Adjoint>}}, // atan(x)
        {"relu",             {act_relu<Matrix>,         adj_act_relu<Matrix, Adjoint>}}, // max(x, 0)
        {"id",               {id<Matrix>,               adj_id<Matrix, Adjoint>}},       // x
    };
    // clang-format on
    for (const Row& row : TABLE) {
        if (row.name == name) return row.pair;
    }
    return TABLE[0].pair;
}

// Sets both norm pairs; false, and neither is set, for an unknown name.
template <class Model>
bool set_norm_named(std::string_view name, Model& net)
{
    using Matrix = typename Model::Matrix;
    using Adjoint = typename Model::Adjoint;

    struct Row {
        std::string_view name;
        typename Model::SummingNormPair summing;
        typename Model::ElementNormPair element;
    };

    // clang-format off
    static constexpr Row TABLE[] = {
        {"sum_log_dnorm_fat", {sum_log_dnorm<Matrix>, adj_sum_log_dnorm<Matrix>},
                              {log_dnorm<Matrix>,     adj_log_dnorm<Matrix, Adjoint>}},  // -log f(R)
        {"sum",               {normfun_sum<Matrix>,   adj_normfun_sum<Matrix>},
                              {normfun<Matrix>,       adj_normfun<Matrix, Adjoint>}},    // R
    };
    // clang-format on
    for (const Row& row : TABLE) {
        if (row.name != name) continue;
        net.summing_norm = row.summing;
        net.element_norm = row.element;
        return true;
    }
    return false;
}

}  // namespace VEMKN
