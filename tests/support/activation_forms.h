#pragma once

#include "adjoint/activations.h"

// Activations and their adjoints as single functions, for tests that do not care about what passes between the two.

template <class Matrix>
using ActivationOf = void (*)(const Matrix& x, Matrix& y, VEMKN::MatrixTemplate<double>& kept);
template <class Matrix>
using AdjointOf = void (*)(const Matrix& x,
                           const VEMKN::MatrixTemplate<double>& kept,
                           const Matrix& ybar,
                           Matrix& xbar);

// y = act(x)
template <class Matrix, ActivationOf<Matrix> activation>
void forward_of(const Matrix& x, Matrix& y)
{
    VEMKN::MatrixTemplate<double> kept;
    activation(x, y, kept);
}

// The adjoint of x, after a forward pass at x.
template <class Matrix, ActivationOf<Matrix> activation, AdjointOf<Matrix> adjoint>
void adjoint_of(const Matrix& x, const Matrix& ybar, Matrix& xbar)
{
    VEMKN::MatrixTemplate<double> kept;
    Matrix y;
    activation(x, y, kept);
    adjoint(x, kept, ybar, xbar);
}
