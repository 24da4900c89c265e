#ifndef VEMKN_FIT_UNCERTAINTY_H
#define VEMKN_FIT_UNCERTAINTY_H

#include <string>
#include <vector>

#include "matrix.h"
#include "network.h"
#include "objective.h"

namespace fit {

/** Laplace's approximation: near the optimum the weights are taken as Gaussian, their precision the
 * Hessian of the whole negative log-likelihood. */
class Laplace {
public:
    /** @param[in] information  the Hessian of the log-likelihood's negative, summed over all elements.
     *             It need not be positive: some directions in weight space are not determined by the
     *             data, and a fit that was stopped early, or at a jump of the likelihood, is at no
     *             smooth minimum. Directions that curve less than 1 are taken to curve by 1. To leave
     *             them out instead would call the weights certain where nothing is known of them. */
    explicit Laplace(const Eigen::MatrixXd& information);

    /// Of a covariance that is known. None of its directions is raised.
    static Laplace of_covariance(const Eigen::MatrixXd& covariance);

    /// Number of directions whose curvature was raised to 1, and of those that curve downwards.
    Eigen::Index raised() const { return raised_; }

    Eigen::Index negative() const { return negative_; }

    /// Standard errors of linear functions of the weights whose gradients are the rows of [gradients].
    Vector standard_errors(const Matrix& gradients) const;

private:
    Laplace() = default;

    Eigen::MatrixXd factor_;  ///< factor_ times its transpose is the covariance
    Eigen::Index raised_ = 0;
    Eigen::Index negative_ = 0;
};

/** The information at w. Under the likelihood it is the objective's Hessian times the number of
 * elements, as the objective is a mean and the scale of the likelihood is fixed. Least squares knows
 * no scale, so there it comes from the residuals. */
Eigen::MatrixXd information(Objective& objective, const Vector& w, bool least_squares);

/** Standard errors of all outputs, in the network's units, a row for each row of x.
 * @param[in] plain  the network with the norm "sum" */
Matrix prediction_errors(const Laplace& laplace,
                         const Network& plain,
                         const Vector& w,
                         const Matrix& x);

}  // namespace fit

#endif
