#pragma once

#include <string>

#include "fit/curve_fit.h"

namespace vemknfit {

// How far the weights of a fit may lie from where they are.
struct Uncertainty {
    Matrix covariance{};  // weights x weights; empty where there is none
    // That the rows determine: by how much all fitted values move with their targets, at most the weights.
    double parameters = 0;
    double freedom = 0;  // rows less parameters
    std::string why_none{};
};

// The sandwich A^-1 (B + L) A^-1 n / (n - parameters) of n rows: A the Hessian of the objective, B the sum over rows of g g' for
// the gradient g of the row's loss, L what the weights cost. There is none where the objective does not curve upwards. Directions
// in which the rows say all but nothing, as of units that have become straight lines, are left out. [Huber, The behavior
// of maximum likelihood estimates under nonstandard conditions, Proc. 5th Berkeley Symp. 1 (1967) 221]
Uncertainty uncertainty_of(const CurveFit& fit, const Curve& curve);

// More weights than that have no covariance.
inline constexpr Eigen::Index MOST_UNCERTAIN_WEIGHTS = 500;

}  // namespace vemknfit
