#pragma once

#include <cassert>
#include <cstdint>

#include "model/model.h"

// The flat order of the parameters: layer by layer the biases, then the weight matrix row by row. Gradients and all
// derivative products are laid out in it.

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

// part = flat[first ...], as many elements as part has; and the reverse.
inline void take_elements(const std::valarray<double>& flat,
                          std::size_t first,
                          std::valarray<double>& part)
{
    std::copy_n(std::begin(flat) + first, part.size(), std::begin(part));
}

inline void put_elements(std::valarray<double>& flat,
                         std::size_t first,
                         const std::valarray<double>& part)
{
    std::copy(std::begin(part), std::end(part), std::begin(flat) + first);
}

inline void take_elements(const std::valarray<double>& flat,
                          std::size_t first,
                          MatrixTemplate<double>& part)
{
    take_elements(flat, first, part.store());
}

inline void put_elements(std::valarray<double>& flat,
                         std::size_t first,
                         const MatrixTemplate<double>& part)
{
    put_elements(flat, first, part.store());
}

// Sets every bias and weight from a flat vector of numel(net) elements.
template <class Model>
void setweights(Model& net, const typename Model::Vector& flat)
{
    assert(flat.size() == numel(net));
    std::size_t at = 0;
    const auto take = [&](auto& part) {
        take_elements(flat, at, part);
        at += part.size();
    };
    for (std::size_t i = 0; i < net.weights.size(); ++i) {
        take(net.biases[i]);
        take(net.weights[i]);
    }
}

// Every bias and weight in one flat vector; flat has numel(net) elements already.
template <class Model>
void getweights(const Model& net, typename Model::Vector& flat)
{
    std::size_t at = 0;
    const auto put = [&](const auto& part) {
        put_elements(flat, at, part);
        at += part.size();
    };
    for (std::size_t i = 0; i < net.weights.size(); ++i) {
        put(net.biases[i]);
        put(net.weights[i]);
    }
}

template <class Model>
typename Model::Vector getweights(const Model& net)
{
    typename Model::Vector flat(0.0, numel(net));
    getweights(net, flat);
    return flat;
}

inline void set_zero(std::valarray<double>& v)
{
    v = 0.0;
}

inline void set_zero(MatrixTemplate<double>& A)
{
    A.store() = 0.0;
}

// Sets every bias and weight to 0.0.
template <class Model>
void setweights0(Model& net)
{
    for (auto& W : net.weights) set_zero(W);
    for (auto& b : net.biases) set_zero(b);
}

// A model of the same shapes with all weights and biases 0.0: the start of a gradient.
template <class Model>
Model zeros_like(const Model& net)
{
    Model zeros = net;
    setweights0(zeros);
    return zeros;
}

}  // namespace VEMKN
