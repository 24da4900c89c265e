#pragma once

// Forward-mode differentiation, from zero.
//
// Write x for a number and x' for its derivative along some direction in the space of the parameters. Whoever knows both
// for two numbers knows both for their product, (a*b)' = a'*b + a*b', for log(a), whose derivative is a'/a, and so on
// for every elementary operation. So a program that computes with pairs (value, derivative) in place of numbers gives,
// with every result, its derivative along that direction: exact, with no step size. With N derivatives in place of one
// it does so for N directions at once, and the value is computed only once.
//
// Here such a tuple is a carrier: fad1<std::valarray<double>>, fad1<MatrixTemplate<double>> and, for scalars,
// FO::Dynamic::Active<1>. The second model of a handle is made of them. To compute, their derivatives lie side by side in a
// Bundle, and the routines of eval and adjoint run over bundles as they run over doubles. The forward pass so gives
// Jacobian-vector products; the hand-written backward sweep, whose result is the gradient, gives Hessian-vector products:
// forward over reverse.
//
// How many directions a carrier has is told by two process-wide counts, g_ndd and FO::Dynamic::NDIR: see directions.h.

#include "fad/activations.h"
#include "fad/active.h"
#include "fad/bundle.h"
#include "fad/densities.h"
#include "fad/directions.h"
#include "fad/errors.h"
#include "fad/expressions.h"
#include "fad/fad1.h"
#include "fad/linear.h"
#include "fad/operations.h"
#include "fad/products.h"
#include "model/model.h"

namespace VEMKN {

using CarrierModel =
    NNTemplate<yafad::MatrixCarrier, yafad::VectorCarrier, yafad::FO::Dynamic::Active<1>>;

}  // namespace VEMKN
