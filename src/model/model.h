#pragma once

#include <cstdint>
#include <string>
#include <type_traits>
#include <valarray>
#include <vector>

#include "model/matrix.h"

namespace VEMKN {

// A forward routine and its adjoint, chosen together by name.
template <class Forward, class Adjoint>
struct FunctionPair {
    Forward forward = nullptr;
    Adjoint adjoint = nullptr;

    bool is_set() const { return forward != nullptr; }
};

// The network: widths, one weight matrix and one bias vector per layer, and the functions chosen by name. With
// s = sizes and n = nlayers, weights[i] is s[i] x s[i+1], the last one s[n-1]*nmult x numout.
//
// One template for the models of a handle, doubles and carriers of values with tangents, and for those that calls compute
// with. A gradient is a second NNTemplate of the same shapes whose weights and biases hold partial derivatives. Adjoints
// are of the type of what they belong to, or of another that holds several for each of its numbers, vectors and matrices
// alike. Weights and biases may be views of somebody else's.
template <class MatrixT,
          class VectorT,
          class Scalar,
          class AdjointT = MatrixT,
          class WeightsT = MatrixT,
          class BiasT = VectorT>
struct NNTemplate {
    using Matrix = MatrixT;
    using Vector = VectorT;
    using SValue = Scalar;
    using Adjoint = AdjointT;
    using Weights = WeightsT;
    using Bias = BiasT;
    static constexpr bool ONE_ADJOINT = std::is_same_v<Adjoint, Matrix>;
    using AdjointVector = std::conditional_t<ONE_ADJOINT, Vector, Adjoint>;
    using Gradient = NNTemplate<Adjoint, AdjointVector, SValue>;

    // y = act(x), and into saved what the adjoint needs of it besides x; xbar = adjoint of x, from x, saved and the adjoint
    // of y.
    using Saved = Plain<Matrix>;
    using ActivationPair =
        FunctionPair<void (*)(const Matrix& x, Matrix& y, Saved& saved),
                     void (*)(
                         const Matrix& x, const Saved& saved, const Adjoint& ybar, Adjoint& xbar)>;
    // s = sum over the elements of R of their norm; Rbar from R and the adjoint of s.
    using SummingNormPair =
        FunctionPair<void (*)(const Matrix& R, SValue& s),
                     void (*)(const Matrix& R, const SValue& sbar, Matrix& Rbar)>;
    // v = the norm of every element of R, with as many elements already; Rbar from R and the adjoint of v.
    using ElementNormPair =
        FunctionPair<void (*)(const Matrix& R, Vector& v),
                     void (*)(const Matrix& R, const AdjointVector& vbar, Adjoint& Rbar)>;

    std::uint32_t numin = 0;
    std::uint32_t numout = 0;
    std::uint32_t nlayers = 0;
    std::uint32_t nmult = 0;    // chained passes through the hidden layers
    std::int32_t batch = 0;     // rows of a slice
    std::uint32_t threads = 1;  // that slices are dealt to, at most
    std::valarray<unsigned int> sizes;
    ListOf<Weights> weights;
    ListOf<Bias> biases;
    std::string norm_name;
    SValue logp_bias{};
    SValue logp_sigma{};
    SummingNormPair summing_norm;
    ElementNormPair element_norm;
    std::string activation_name;
    ActivationPair activation;
};

using DoubleModel = NNTemplate<MatrixTemplate<double>, std::valarray<double>, double>;

}  // namespace VEMKN
