#pragma once

#include "kernels/kernels.h"
#include "model/matrix.h"

// The activations, over any matrix type. Each takes the pre-activation x and overwrites y with the result, in the
// shape of x; y may be x. `apply` is what a matrix type provides: the loop below for
// doubles, its counterpart in fad/activations.h for carriers.

namespace VEMKN {

template <class F>
void apply(const MatrixTemplate<double>& x, MatrixTemplate<double>& y)
{
    y.resize(x.rows(), x.cols());
    element_kernels<F>().value(x.data(), y.data(), x.size());
}

// y = x
template <class Matrix>
void id(const Matrix& x, Matrix& y)
{
    apply<Id>(x, y);
}

// y = atan(x)
template <class Matrix>
void act_atan(const Matrix& x, Matrix& y)
{
    apply<Atan>(x, y);
}

// y = x for x >= 0, else 0
template <class Matrix>
void act_relu(const Matrix& x, Matrix& y)
{
    apply<Relu>(x, y);
}

// y = log(1 + e^x)
template <class Matrix>
void softplus(const Matrix& x, Matrix& y)
{
    apply<Softplus>(x, y);
}

// Deliberate: nothing is shifted. A shift of -1 on a copy would be thrown away; the result is softplus to the bit.
template <class Matrix>
void softplus_shifted(const Matrix& x, Matrix& y)
{
    softplus(x, y);
}

// The same five, returning the result.

template <class Matrix>
Matrix id(const Matrix& x)
{
    return x;
}

template <class Matrix>
Matrix act_atan(const Matrix& x)
{
    Matrix y;
    act_atan(x, y);
    return y;
}

template <class Matrix>
Matrix act_relu(const Matrix& x)
{
    Matrix y;
    act_relu(x, y);
    return y;
}

template <class Matrix>
Matrix softplus(const Matrix& x)
{
    Matrix y;
    softplus(x, y);
    return y;
}

template <class Matrix>
Matrix softplus_shifted(const Matrix& x)
{
    return softplus(x);
}

}  // namespace VEMKN
