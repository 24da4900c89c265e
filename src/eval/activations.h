#pragma once

#include "eval/element_loops.h"

// The activations, over any matrix type. Each takes the pre-activation x and overwrites y with the result, in the shape of
// x; what its adjoint needs besides x goes into kept. y may be x; then no adjoint can follow, and nothing is kept. `apply`
// is what a matrix type provides: the loops of eval/element_loops.h for doubles, their counterpart in fad/activations.h
// for carriers.

namespace VEMKN {

// y = x
template <class Matrix>
void id(const Matrix& x, Matrix& y, Kept<Matrix>& kept)
{
    apply<Id>(x, y, kept);
}

// y = atan(x)
template <class Matrix>
void act_atan(const Matrix& x, Matrix& y, Kept<Matrix>& kept)
{
    apply<Atan>(x, y, kept);
}

// y = x for x >= 0, else 0
template <class Matrix>
void act_relu(const Matrix& x, Matrix& y, Kept<Matrix>& kept)
{
    apply<Relu>(x, y, kept);
}

// y = log(1 + e^x)
template <class Matrix>
void softplus(const Matrix& x, Matrix& y, Kept<Matrix>& kept)
{
    apply<Softplus>(x, y, kept);
}

// Deliberate: nothing is shifted. A shift of -1 on a copy would be thrown away; the result is softplus to the bit.
template <class Matrix>
void softplus_shifted(const Matrix& x, Matrix& y, Kept<Matrix>& kept)
{
    softplus(x, y, kept);
}

// The same five, returning the result and keeping nothing.

template <class Matrix>
Matrix id(const Matrix& x)
{
    return x;
}

template <class Matrix>
Matrix act_atan(const Matrix& x)
{
    Matrix y;
    Kept<Matrix> kept;
    act_atan(x, y, kept);
    return y;
}

template <class Matrix>
Matrix act_relu(const Matrix& x)
{
    Matrix y;
    Kept<Matrix> kept;
    act_relu(x, y, kept);
    return y;
}

template <class Matrix>
Matrix softplus(const Matrix& x)
{
    Matrix y;
    Kept<Matrix> kept;
    softplus(x, y, kept);
    return y;
}

template <class Matrix>
Matrix softplus_shifted(const Matrix& x)
{
    return softplus(x);
}

}  // namespace VEMKN
