#pragma once

#include <algorithm>
#include <vector>

#include "hand_elements.h"
#include "hand_tangents.h"

// The network by hand, for fixed shapes, activation and norm, over a back end that multiplies matrices.
//
// Rows go through in blocks. Within a block everything lies feature by feature: an activation of width k is a matrix of
// m rows stored column by column, with a column of ones in front. That makes a layer one product, for the biases stand
// in front of the weights in the flat vector,
//
//     Z = [1 H] [b; W]        [gb; gW] = [1 H]^T Zbar        Hbar = Zbar W^T
//
// and neither weights nor gradients are copied. G tangents at a time lie side by side inside a feature, in the order
// (feature, tangent, row). Such an array is a matrix of m rows and G times as many columns, or one of G*m rows; so
// both terms of a product rule are one product each. Blocks are filled up with zero rows to whole vector registers.

namespace compare {

struct BlockSize {
    int rows;
    int tangents;
};

template <class Backend, class Activation>
class HandNetwork {
public:
    HandNetwork(const std::vector<unsigned>& widths, BlockSize size)
        : size_(size), widths_(widths.begin(), widths.end())
    {
        const std::size_t m = static_cast<std::size_t>(padded(size.rows));
        std::size_t offset = 0, widest = 0;
        for (std::size_t l = 0; l + 1 < widths.size(); ++l) {
            layers_.push_back(
                {static_cast<int>(widths[l]), static_cast<int>(widths[l + 1]), offset});
            offset += (widths[l] + 1) * widths[l + 1];
        }
        nw_ = offset;
        for (const unsigned width : widths) {
            widest = std::max<std::size_t>(widest, width);
            H_.emplace_back(m * (width + 1));
            bar_.emplace_back(m * width);
        }
        for (const Layer& layer : layers_) {
            slope_.emplace_back(m * layer.n);
            ratio_.emplace_back(m * layer.n);
        }
        const std::size_t G = static_cast<std::size_t>(std::max(size.tangents, 1));
        for (const unsigned width : widths) dH_.emplace_back(m * width * G);
        for (Doubles& b : dbar_) b.resize(m * widest * G);
        R_.resize(m * widths.back());
        curvature_.resize(m * widths.back());
    }

    double obj(const Batch& batch)
    {
        double sum = 0.0;
        for_each_block(batch, [&](const Block& b) {
            forward(b, [&](std::size_t, double* z, std::size_t n) { Activation::values(z, n); });
            sum += HandNorm::sum(residuals_of(b), b.size(numout()));
        });
        return sum / elements(batch);
    }

    double g(const Batch& batch, double* gradient)
    {
        double sum = 0.0;
        for_each_block(batch, [&](const Block& b) {
            forward_with_slopes(b);
            const double* R = residuals_of(b);
            sum += HandNorm::sum(R, b.size(numout()));
            HandNorm::slopes(R, bar_.back().data(), 1.0 / elements(batch), b.size(numout()));
            backward(b, gradient, [&](std::size_t l, double* bar, std::size_t n) {
                multiply(bar, slope_[l].data(), n);
            });
        });
        return sum / elements(batch);
    }

    // v, hv: entry k of tangent d at [k*N + d]
    double Hv(const Batch& batch, const double* v, int N, double* gradient, double* hv)
    {
        make_groups(N);
        for (Group& group : groups_) pack(layers_, group, v, N);
        double sum = 0.0;
        const double scale = 1.0 / elements(batch);
        for_each_block(batch, [&](const Block& b) {
            forward(b, [&](std::size_t l, double* z, std::size_t n) {
                Activation::curvatures(z, slope_[l].data(), ratio_[l].data(), n);
            });
            const double* R = residuals_of(b);
            sum += HandNorm::sum(R, b.size(numout()));
            HandNorm::curvatures(R, bar_.back().data(), curvature_.data(), scale, b.size(numout()));
            clear_padding(b, curvature_.data(), numout());
            backward(b, gradient, [&](std::size_t l, double* bar, std::size_t n) {
                if (Activation::curves) multiply(ratio_[l].data(), bar, n);
                multiply(bar, slope_[l].data(), n);
            });
            for (Group& group : groups_) {
                forward_tangents(b, group);
                backward_tangents(b, group);
            }
        });
        for (const Group& group : groups_) unpack(layers_, group, N, hv);
        return sum * scale;
    }

    // f: rows x numout; jac: element i along tangent d at [i*N + d]
    void Jv(const Batch& batch, const double* v, int N, double* f, double* jac)
    {
        make_groups(N);
        for (Group& group : groups_) pack(layers_, group, v, N);
        for_each_block(batch, [&](const Block& b) {
            forward_with_slopes(b);
            const double* R = residuals_of(b);
            const std::size_t n = b.size(numout());
            HandNorm::slopes(R, bar_.back().data(), 1.0, n);
            multiply(slope_.back().data(), bar_.back().data(), n);
            put_rows(b, R, numout(), f);
            for (Group& group : groups_) {
                forward_tangents(b, group);
                put_tangents(b, group, dH_.back().data(), numout(), N, jac);
            }
        });
        HandNorm::values(f, static_cast<std::size_t>(batch.rows) * numout());
    }

    // u, gradients: one block after the other, each in the order of the targets and of the weights
    void vJ_vec(const Batch& batch, const double* u, int N, double* r, double* gradients)
    {
        make_groups(N);
        for_each_block(batch, [&](const Block& b) {
            forward_with_slopes(b);
            const double* R = residuals_of(b);
            put_rows(b, R, numout(), r);
            HandNorm::slopes(R, bar_.back().data(), 1.0, b.size(numout()));
            for (Group& group : groups_) {
                weigh(b, group, u, bar_.back().data(), numout(), dbar_[0].data());
                backward_cotangents(b, group);
            }
        });
        for (const Group& group : groups_) unpack_cotangents(group, gradients);
    }

private:
    int numout() const { return widths_.back(); }

    double elements(const Batch& batch) const { return static_cast<double>(batch.rows) * numout(); }

    template <class Work>
    void for_each_block(const Batch& batch, const Work& work)
    {
        for (int row = 0; row < batch.rows; row += size_.rows) {
            const int rows = std::min(size_.rows, batch.rows - row);
            work(Block{batch, row, rows, padded(rows)});
        }
    }

    template <class Elements>
    void forward(const Block& b, const Elements& elements)
    {
        load_inputs(b, widths_.front(), H_[0].data() + b.m);
        for (std::size_t l = 0; l < layers_.size(); ++l) {
            const Layer& layer = layers_[l];
            std::fill_n(H_[l].data(), b.m, 1.0);
            double* Z = H_[l + 1].data() + b.m;
            Backend::times_transposed(
                b.m, layer.n, layer.k + 1, H_[l].data(), b.batch.w + layer.offset, Z, false);
            elements(l, Z, b.size(layer.n));
        }
    }

    void forward_with_slopes(const Block& b)
    {
        forward(b, [&](std::size_t l, double* z, std::size_t n) {
            Activation::slopes(z, slope_[l].data(), n);
        });
    }

    // From bar_.back(), the adjoint of the outputs. elements turns the adjoint of a layer's outputs into that of its Z,
    // which stays in bar_[l + 1].
    template <class Elements>
    void backward(const Block& b, double* gradient, const Elements& elements)
    {
        for (std::size_t l = layers_.size(); l-- > 0;) {
            const Layer& layer = layers_[l];
            double* Zbar = bar_[l + 1].data();
            elements(l, Zbar, b.size(layer.n));
            Backend::transposed_times(layer.n,
                                      layer.k + 1,
                                      b.m,
                                      Zbar,
                                      H_[l].data(),
                                      gradient + layer.offset,
                                      b.first > 0);
            if (l == 0) return;
            Backend::times(b.m, layer.k, layer.n, Zbar, weights(b, layer), bar_[l].data(), false);
        }
    }

    // Z' = [1 H] [b'; W'] + H' W, and act'(Z) Z' in dH_[l + 1]
    void forward_tangents(const Block& b, const Group& group)
    {
        const int G = group.G;
        for (std::size_t l = 0; l < layers_.size(); ++l) {
            const Layer& layer = layers_[l];
            double* dZ = dH_[l + 1].data();
            Backend::times_transposed(b.m,
                                      layer.n * G,
                                      layer.k + 1,
                                      H_[l].data(),
                                      group.by_output.data() + layer.offset * G,
                                      dZ,
                                      false);
            if (l > 0) {
                Backend::times_transposed(
                    b.m * G, layer.n, layer.k, dH_[l].data(), weights(b, layer), dZ, true);
            }
            multiply_each(dZ, slope_[l].data(), b, layer.n, G);
        }
    }

    // Zbar' = act' Hbar' + (act''/act' Hbar) H'; its products with [1 H], and with W to get at the layer before. The
    // other halves of these two product rules are H'^T Zbar and Zbar W'^T.
    void backward_tangents(const Block& b, Group& group)
    {
        const int G = group.G;
        double *dbar = dbar_[0].data(), *next = dbar_[1].data();
        std::copy_n(dH_.back().data(), b.size(numout()) * G, dbar);
        multiply_each(dbar, curvature_.data(), b, numout(), G);
        for (std::size_t l = layers_.size(); l-- > 0;) {
            const Layer& layer = layers_[l];
            const double* Zbar = bar_[l + 1].data();
            multiply_each(dbar, slope_[l].data(), b, layer.n, G);
            if (Activation::curves) {
                add_products(dbar, ratio_[l].data(), dH_[l + 1].data(), b, layer.n, G);
            }
            add_to_first(b, group, l, dbar);
            if (l == 0) return;
            Backend::transposed_times(layer.n,
                                      layer.k * G,
                                      b.m,
                                      Zbar,
                                      dH_[l].data(),
                                      group.second.data() + weight_offset(layer) * G,
                                      b.first > 0);
            Backend::times(b.m,
                           layer.k * G,
                           layer.n,
                           Zbar,
                           group.by_input.data() + weight_offset(layer) * G,
                           next,
                           false);
            Backend::times(b.m * G, layer.k, layer.n, dbar, weights(b, layer), next, true);
            std::swap(dbar, next);
        }
    }

    // The sweep of backward, for all cotangents of a group. From dbar_[0], weighted.
    void backward_cotangents(const Block& b, Group& group)
    {
        const int G = group.G;
        double *dbar = dbar_[0].data(), *next = dbar_[1].data();
        for (std::size_t l = layers_.size(); l-- > 0;) {
            const Layer& layer = layers_[l];
            multiply_each(dbar, slope_[l].data(), b, layer.n, G);
            add_to_first(b, group, l, dbar);
            if (l == 0) return;
            Backend::times(b.m * G, layer.k, layer.n, dbar, weights(b, layer), next, false);
            std::swap(dbar, next);
        }
    }

    void add_to_first(const Block& b, Group& group, std::size_t l, const double* dZbar)
    {
        const Layer& layer = layers_[l];
        Backend::transposed_times(layer.n * group.G,
                                  layer.k + 1,
                                  b.m,
                                  dZbar,
                                  H_[l].data(),
                                  group.first.data() + layer.offset * group.G,
                                  b.first > 0);
    }

    static const double* weights(const Block& b, const Layer& layer)
    {
        return b.batch.w + weight_offset(layer);
    }

    const double* residuals_of(const Block& b)
    {
        residuals(b, H_.back().data() + b.m, numout(), R_.data());
        return R_.data();
    }

    void make_groups(int N)
    {
        if (number_ == N) return;
        number_ = N;
        groups_.clear();
        for (int begin = 0; begin < N; begin += size_.tangents) {
            const int G = std::min(size_.tangents, N - begin);
            const Doubles zeros(nw_ * G);
            groups_.push_back({begin, G, zeros, zeros, zeros, zeros});
        }
    }

    // All matrices feature by feature. H_[l] are the inputs of layer l, with ones in front; slope_[l], ratio_[l] belong
    // to the outputs of layer l; dH_ and dbar_ are for a group of tangents.
    BlockSize size_;
    std::vector<int> widths_;
    std::vector<Layer> layers_;
    std::size_t nw_ = 0;
    int number_ = -1;
    std::vector<Group> groups_;
    std::vector<Doubles> H_, dH_, slope_, ratio_, bar_;
    Doubles dbar_[2], R_, curvature_;
};

}  // namespace compare
