#pragma once

#include "fit/objective.h"

namespace vemknfit {

// The minimum that Newton's steps lead to from w, damped where one would not go down; for an objective of so few weights and rows
// that its Hessian is worth forming (see steps_of_newton). A step that changes no prediction by 1e-7 of its standard error is the
// last, or as many as are allowed: units that have become straight lines, which biases may go on moving, make long narrow valleys.
Vector newton(const ObjectiveOfSides& objective, Vector w, int steps);

// How many steps are worth their Hessians, none where they are too large.
int steps_of_newton(Eigen::Index weights, Eigen::Index rows);

}  // namespace vemknfit
