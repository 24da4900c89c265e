#pragma once

#include <cstdlib>
#include <optional>
#include <string>
#include <utility>

#include "model/model.h"
#include "network/description.h"
#include "network/function_tables.h"
#include "runtime/call_frame.h"
#include "runtime/messages.h"

namespace VEMKN {

// One line about the build on standard output when the environment variable INFO is set.
void print_build_information();

// The model that a parsed description asks for, weights and biases zero.
//   tangents : of a model of carriers, their number, which is then not that of the process
template <class Model, class... Tangents>
Model build_model(const Description& d, Tangents... tangents)
{
    Model net;
    net.numin = d.numin;
    net.numout = d.numout;
    net.nlayers = d.nlayers;
    net.nmult = d.nmult;
    net.batch = static_cast<std::int32_t>(d.batch);
    if (!d.valid) {
        write_error("Error: invalid network data\n");
        return net;
    }

    net.sizes = d.sizes;
    net.activation_name = d.activation_name;
    net.norm_name = d.norm_name;
    net.weights.reserve(d.nlayers);
    net.biases.reserve(d.nlayers);
    for (std::size_t i = 0; i < d.nlayers; ++i) {
        net.weights.emplace_back(MatrixTemplate<double>(d.rows(i), d.cols(i)), tangents...);
        net.biases.emplace_back(std::valarray<double>(0.0, d.cols(i)), tangents...);
    }
    const FunctionRows functions = function_rows(d.activation_name, d.norm_name);
    set_functions(functions, net);
    if (!functions.norm) {
        write_output(message("invalid norm function name: ", d.norm_name, "\n"));
    }
    const LogpConstants logp = logp_of(functions);
    net.logp_bias = typename Model::SValue(logp.bias, tangents...);
    net.logp_sigma = typename Model::SValue(logp.sigma, tangents...);
    return net;
}

// A text and what it says, read when the first model is made from it. Whether there is memory enough is part of that: all
// models of a text are built, or none.
class DescriptionText {
public:
    explicit DescriptionText(std::string text) : text_(std::move(text)) {}

    const Description& parsed() const
    {
        if (!parsed_) parsed_ = parse_description(text_);
        return *parsed_;
    }

private:
    std::string text_;
    mutable std::optional<Description> parsed_;
};

// Model from a description text. Bad content gives a message and a model without layers, never an exception.
template <class Model, class... Tangents>
Model mknn(const DescriptionText& text, Tangents... tangents)
{
    Model net;
    call_frame(Enters::nothing, [&] {
        print_build_information();
        net = build_model<Model>(text.parsed(), tangents...);
    });
    return net;
}

}  // namespace VEMKN
