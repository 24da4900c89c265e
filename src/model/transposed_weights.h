#pragma once

#include "model/blas.h"
#include "model/model.h"

namespace VEMKN {

// The transposed weight matrices, copied once for all slices of a call and shared by its threads: Zbar W^T is then a
// product of two factors as they stand, which kernels read along their rows, and so do the small-product kernels of BLAS.
template <class Model>
class TransposedWeights {
public:
    // None of them: a single slice is not worth the copies.
    TransposedWeights() = default;

    explicit TransposedWeights(const Model& net) : transposed_(net.weights.size())
    {
        // With one pass nothing is passed down from the first layer.
        for (std::size_t i = net.nmult == 1 ? 1 : 0; i < net.weights.size(); ++i) {
            transpose(net.weights[i], transposed_[i]);
        }
    }

    // Hbar = Zbar W^T for layer i.
    void pass_down(const Model& net,
                   std::size_t i,
                   const typename Model::Adjoint& Zbar,
                   typename Model::Adjoint& Hbar) const
    {
        const By by = products_with(net.weights[i]);
        if (transposed_.empty()) {
            do_binmult(Hbar, Zbar, transposed(net.weights[i]), by);
        } else {
            do_mult(Zbar, transposed_[i], Hbar, by);
        }
    }

private:
    ListOf<typename Model::Matrix> transposed_;
};

}  // namespace VEMKN
