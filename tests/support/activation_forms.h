#pragma once

#include "fad/ad.h"

// An activation that writes its result, for tests of a pair of functions.

template <class Matrix>
using ActivationOf = Matrix (*)(const Matrix& x);

// y = act(x)
template <class Matrix, ActivationOf<Matrix> activation>
void forward_of(const Matrix& x, Matrix& y)
{
    y = activation(x);
}
