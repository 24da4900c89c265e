#pragma once

#include "hand_block.h"

// Tangents or cotangents that go through a block together, and their way between the caller's order and the one of
// the products.

namespace compare {

struct Layer {
    int k, n;  // inputs, outputs
    std::size_t offset;
};

inline std::size_t weight_offset(const Layer& layer)
{
    return layer.offset + layer.n;
}

// Tangents begin ... begin + G - 1. Within a layer of k inputs and n outputs
//   by_output  (1+k) x n x G    biases and weights of the tangents; empty for cotangents
//   by_input   k x G x n        weights
//   first      (1+k) x n x G    [1 H]^T Zbar'
//   second     k x G x n        H'^T Zbar, none for layer 0
struct Group {
    int begin, G;
    Doubles by_output, by_input, first, second;
};

inline void pack_by_input(const Layer& layer, Group& group)
{
    const int G = group.G, n = layer.n;
    const std::size_t at = weight_offset(layer) * G;
    for (int i = 0; i < layer.k; ++i) {
        const double* from = &group.by_output[at + static_cast<std::size_t>(i) * n * G];
        double* to = &group.by_input[at + static_cast<std::size_t>(i) * n * G];
        for (int j = 0; j < n; ++j) {
            for (int d = 0; d < G; ++d) to[d * n + j] = from[j * G + d];
        }
    }
}

// The group's part of N tangents, entry k of tangent d at v[k*N + d].
inline void pack(const std::vector<Layer>& layers, Group& group, const double* v, int N)
{
    const std::size_t nw = group.by_output.size() / group.G;
    for (std::size_t k = 0; k < nw; ++k) {
        std::copy_n(v + k * N + group.begin, group.G, &group.by_output[k * group.G]);
    }
    for (const Layer& layer : layers) pack_by_input(layer, group);
}

// Both halves of the product rule, in the order of pack.
inline void unpack(const std::vector<Layer>& layers, const Group& group, int N, double* hv)
{
    const int G = group.G;
    const std::size_t nw = group.first.size() / G;
    for (std::size_t k = 0; k < nw; ++k) {
        std::copy_n(&group.first[k * G], G, hv + k * N + group.begin);
    }
    for (std::size_t l = 1; l < layers.size(); ++l) {
        const Layer& layer = layers[l];
        for (int i = 0; i < layer.k; ++i) {
            const std::size_t at = weight_offset(layer) + static_cast<std::size_t>(i) * layer.n;
            for (int j = 0; j < layer.n; ++j) {
                double* to = hv + (at + j) * N + group.begin;
                for (int d = 0; d < G; ++d) to[d] += group.second[at * G + d * layer.n + j];
            }
        }
    }
}

// Gradients one after the other.
inline void unpack_cotangents(const Group& group, double* gradients)
{
    const std::size_t nw = group.first.size() / group.G;
    for (std::size_t k = 0; k < nw; ++k) {
        for (int d = 0; d < group.G; ++d) {
            gradients[(group.begin + d) * nw + k] = group.first[k * group.G + d];
        }
    }
}

// The cotangents u of a group times slope, n features without tangents. out has the order (feature, tangent, row).
inline void weigh(
    const Block& b, const Group& group, const double* u, const double* slope, int n, double* out)
{
    for (int d = 0; d < group.G; ++d) {
        const std::size_t row = static_cast<std::size_t>(group.begin + d) * b.batch.rows + b.first;
        const double* ud = u + row * n;
        for (int j = 0; j < n; ++j) {
            double* to = out + b.size(j * group.G + d);
            const double* s = slope + b.size(j);
            for (int r = 0; r < b.rows; ++r) to[r] = ud[r * n + j] * s[r];
            std::fill(to + b.rows, to + b.m, 0.0);
        }
    }
}

// Tangents of n features, of N tangents in all, to the order (row, feature, tangent).
inline void put_tangents(
    const Block& b, const Group& group, const double* dO, int n, int N, double* out)
{
    const int G = group.G;
    out += static_cast<std::size_t>(b.first) * n * N + group.begin;
    for (int j = 0; j < n; ++j) {
        for (int r = 0; r < b.rows; ++r) {
            double* to = out + static_cast<std::size_t>(r * n + j) * N;
            for (int d = 0; d < G; ++d) to[d] = dO[b.size(j * G + d) + r];
        }
    }
}

}  // namespace compare
