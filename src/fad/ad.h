#pragma once

// Forward-mode differentiation, from zero.
//
// Write x for a number and x' for its derivative along some tangent, a direction in the space of the parameters. Whoever
// knows both for two numbers knows both for their product, (a*b)' = a'*b + a*b', for log(a), whose derivative is a'/a, and
// so on for every elementary operation. So a program that computes with pairs (value, derivative) in place of numbers gives,
// with every result, its derivative along that tangent: exact, with no step size. With N derivatives in place of one it does
// so for N tangents at once, and the value is computed only once.
//
// Such a tuple is a carrier. There are two kinds:
//
// - Bundles (fad/bundle.h) are what calls compute with: the derivatives of a matrix lie side by side in one array, so that
//   one product or one loop serves all of them. The routines of eval and adjoint run over bundles as they run over doubles.
//   The forward pass so gives Jacobian-vector products; the hand-written backward sweep, whose result is the gradient, gives
//   Hessian-vector products: forward over reverse. Scalars are WorkScalar.
// - Elementary carriers (fad/elementary/) keep each derivative in a container of its own: fad1<std::valarray<double>> and
//   fad1<MatrixTemplate<double>>. The second model of a handle is made of them, and their arithmetic, one elementary
//   operation after the other, is what the loops over bundles are checked against. No call goes through it.
//
// Two process-wide counts say how many tangents a carrier has: see fad/tangent_counts.h.

#include "fad/active.h"
#include "fad/bundle.h"
#include "fad/element_loops.h"
#include "fad/elementary/activations.h"
#include "fad/elementary/bundling.h"
#include "fad/elementary/densities.h"
#include "fad/elementary/element_loops.h"
#include "fad/elementary/expressions.h"
#include "fad/elementary/fad1.h"
#include "fad/elementary/linear.h"
#include "fad/elementary/model.h"
#include "fad/elementary/norms.h"
#include "fad/elementary/operations.h"
#include "fad/elementary/products.h"
#include "fad/errors.h"
#include "fad/linear.h"
#include "fad/products.h"
#include "fad/seeding.h"
#include "fad/tangent_counts.h"
