#pragma once

#include <cstdint>

#include "model/linear.h"
#include "model/model.h"

// All parameters of a model at once, and their flat order: layer by layer the biases, then the weight matrix row by row.
// Gradients and all derivative products are laid out in it.

namespace VEMKN {

// Number of weights and biases.
template <class Model>
std::uint64_t numel(const Model& net)
{
    std::uint64_t n = 0;
    for (std::size_t i = 0; i < net.weights.size(); ++i) {
        n += net.biases[i].size() + net.weights[i].size();
    }
    return n;
}

// part = flat[first ...], as many elements as part has; and the reverse. flat is a vector, or where its elements lie.
template <class Part>
void take_elements(const double* flat, std::size_t first, Part& part)
{
    std::copy_n(flat + first, part.size(), elements(part));
}

template <class Part>
void take_elements(const std::valarray<double>& flat, std::size_t first, Part& part)
{
    take_elements(std::begin(flat), first, part);
}

template <class Array, class Part>
void put_elements(Array& flat, std::size_t first, const Part& part)
{
    std::copy_n(elements(part), part.size(), elements(flat) + first);
}

// visit(part, first) for every bias vector and weight matrix in the flat order, with the place of its first element.
template <class Model, class Visit>
void for_each_parameter(Model& net, const Visit& visit)
{
    std::size_t first = 0;
    for (std::size_t i = 0; i < net.weights.size(); ++i) {
        visit(net.biases[i], first);
        first += net.biases[i].size();
        visit(net.weights[i], first);
        first += net.weights[i].size();
    }
}

// Sets every bias and weight from numel(net) elements.
template <class Model, class Flat>
void setweights(Model& net, const Flat& flat)
{
    for_each_parameter(net,
                       [&](auto& part, std::size_t first) { take_elements(flat, first, part); });
}

// Every bias and weight in one flat vector; flat has numel(net) elements already.
template <class Model>
void getweights(const Model& net, typename Model::Vector& flat)
{
    for_each_parameter(
        net, [&](const auto& part, std::size_t first) { put_elements(flat, first, part); });
}

template <class Model>
typename Model::Vector getweights(const Model& net)
{
    typename Model::Vector flat(0.0, numel(net));
    getweights(net, flat);
    return flat;
}

// Sets every bias and weight to 0.0.
template <class Model>
void setweights0(Model& net)
{
    for (auto& W : net.weights) set_zero(W);
    for (auto& b : net.biases) set_zero(b);
}

// The weights and biases of a model of the same shapes, all 0.0, without its functions: the start of a gradient.
template <class Matrix, class Vector, class Scalar, class... Others>
auto zeros_like(const NNTemplate<Matrix, Vector, Scalar, Others...>& net)
{
    NNTemplate<Matrix, Vector, Scalar> zeros;
    zeros.weights.reserve(net.weights.size());
    zeros.biases.reserve(net.biases.size());
    for (const auto& W : net.weights) zeros.weights.push_back(zeros_like(W));
    for (const auto& b : net.biases) zeros.biases.push_back(zeros_like(b));
    return zeros;
}

// a += b, layer by layer.
template <class Matrix, class Vector, class Scalar>
void do_add(NNTemplate<Matrix, Vector, Scalar>& a, const NNTemplate<Matrix, Vector, Scalar>& b)
{
    for (std::size_t i = 0; i < b.weights.size(); ++i) {
        do_add(a.weights[i], b.weights[i]);
        do_add(a.biases[i], b.biases[i]);
    }
}

}  // namespace VEMKN
