#pragma once

#include "eval/element_loops.h"
#include "fad/elementary/element_loops.h"

// The activations and their adjoints by their names, over matrices of doubles and of carriers. A forward routine returns
// y = act(x) in the shape of x; an adjoint takes the forward input x and the adjoint ybar of y, and overwrites xbar with the
// adjoint of x, in the shape of x.

namespace VEMKN {

template <class F, class Matrix>
Matrix applied(const Matrix& x)
{
    Matrix y;
    Plain<Matrix> saved;
    apply<F>(x, y, saved);
    return y;
}

template <class F, class Matrix>
void adj_applied(const Matrix& x, const Matrix& ybar, Matrix& xbar)
{
    Matrix y;
    Plain<Matrix> saved;
    apply<F>(x, y, saved);
    adj_apply<F>(x, saved, ybar, xbar);
}

// y = x
template <class Matrix>
Matrix id(const Matrix& x)
{
    return x;
}

// y = atan(x)
template <class Matrix>
Matrix act_atan(const Matrix& x)
{
    return applied<Atan>(x);
}

// y = x for x >= 0, else 0
template <class Matrix>
Matrix act_relu(const Matrix& x)
{
    return applied<Relu>(x);
}

// y = log(1 + e^x)
template <class Matrix>
Matrix softplus(const Matrix& x)
{
    return applied<Softplus>(x);
}

// Deliberate: nothing is shifted. A shift of -1 on a copy would be thrown away; the result is softplus to the bit.
template <class Matrix>
Matrix softplus_shifted(const Matrix& x)
{
    return softplus(x);
}

// xbar = ybar
template <class Matrix>
void adj_id(const Matrix& x, const Matrix& ybar, Matrix& xbar)
{
    adj_applied<Id>(x, ybar, xbar);
}

// xbar = ybar / (x*x + 1)
template <class Matrix>
void adj_act_atan(const Matrix& x, const Matrix& ybar, Matrix& xbar)
{
    adj_applied<Atan>(x, ybar, xbar);
}

// xbar = ybar for x >= 0, else 0
template <class Matrix>
void adj_act_relu(const Matrix& x, const Matrix& ybar, Matrix& xbar)
{
    adj_applied<Relu>(x, ybar, xbar);
}

// xbar = e/(1 + e) * ybar with e = exp(x) for x < 300, else ybar. Also the adjoint of softplus_shifted.
template <class Matrix>
void adj_softplus(const Matrix& x, const Matrix& ybar, Matrix& xbar)
{
    adj_applied<Softplus>(x, ybar, xbar);
}

}  // namespace VEMKN
