#pragma once

#include "eval/activations.h"

// Adjoints of the activations, in the order of eval/activations.h: x is the forward input and kept what the forward
// routine left there, ybar the adjoint of its result, xbar the adjoint of x. xbar is overwritten, never added to, and
// takes the shape of ybar, that of x or of several of it side by side; it may be ybar.

namespace VEMKN {

// xbar = ybar
template <class Matrix, class Adjoint = Matrix>
void adj_id(const Matrix& x, const Kept<Matrix>& kept, const Adjoint& ybar, Adjoint& xbar)
{
    adj_apply<Id>(x, kept, ybar, xbar);
}

// xbar = ybar / (x*x + 1)
template <class Matrix, class Adjoint = Matrix>
void adj_act_atan(const Matrix& x, const Kept<Matrix>& kept, const Adjoint& ybar, Adjoint& xbar)
{
    adj_apply<Atan>(x, kept, ybar, xbar);
}

// xbar = ybar for x >= 0, else 0
template <class Matrix, class Adjoint = Matrix>
void adj_act_relu(const Matrix& x, const Kept<Matrix>& kept, const Adjoint& ybar, Adjoint& xbar)
{
    adj_apply<Relu>(x, kept, ybar, xbar);
}

// xbar = e/(1 + e) * ybar with e = exp(x) for x < 300, else ybar. Also the adjoint of softplus_shifted.
template <class Matrix, class Adjoint = Matrix>
void adj_softplus(const Matrix& x, const Kept<Matrix>& kept, const Adjoint& ybar, Adjoint& xbar)
{
    adj_apply<Softplus>(x, kept, ybar, xbar);
}

}  // namespace VEMKN
