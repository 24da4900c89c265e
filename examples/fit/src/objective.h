#ifndef VEMKN_FIT_OBJECTIVE_H
#define VEMKN_FIT_OBJECTIVE_H

#include <cstddef>

#include "guard.h"
#include "matrix.h"
#include "network.h"

namespace fit {

/// What a fit cost: calls of the library on the training rows, and steps that the guard refused.
struct Counts {
    std::size_t values = 0;
    std::size_t gradients = 0;
    std::size_t products = 0;  ///< of the Hessian with one tangent
    std::size_t hessians = 0;
    std::size_t jacobians = 0;
    std::size_t refused = 0;

    std::size_t total() const { return values + gradients + products + hessians + jacobians; }

    Counts& operator+=(const Counts& other);
};

/** A function of the weights to be minimised, on one batch. value() gives infinity for weights that
 * the guard refuses; the other calls must get safe weights. */
class Objective {
public:
    Objective(const Network& network, const Batch& batch, const Guard& guard)
        : network_(network), batch_(batch), guard_(guard)
    {
    }

    virtual ~Objective() = default;
    Objective(const Objective&) = delete;
    Objective& operator=(const Objective&) = delete;

    double value(const Vector& w);
    virtual double gradient(const Vector& w, Vector& gradient) = 0;
    /// The Hessian, or what the objective has in its place.
    virtual double curvature(const Vector& w, Vector& gradient, Eigen::MatrixXd& curvature) = 0;

    const Guard& guard() const { return guard_; }

    const Batch& batch() const { return batch_; }

    const Network& network() const { return network_; }

    Counts counts;

protected:
    virtual double safe_value(const Vector& w) = 0;

    const Network& network_;
    const Batch& batch_;
    const Guard& guard_;
};

/// The library's own objective under a norm that has a minimum.
class NormObjective : public Objective {
public:
    using Objective::Objective;
    /// The Hessian times a tangent.
    Vector curvature_along(const Vector& w, const Vector& tangent);
    double gradient(const Vector& w, Vector& gradient) override;
    double curvature(const Vector& w, Vector& gradient, Eigen::MatrixXd& curvature) override;

protected:
    double safe_value(const Vector& w) override;
};

/** Least squares, for a network with the norm "sum", whose normed residuals are the residuals: the
 * mean of r^2 * 9/2, the negative log-likelihood of a Gaussian of standard deviation 1/3. In the
 * core the robust likelihood is the same function, so the two objectives can be compared.
 * curvature() is the Gauss-Newton matrix. */
class SquaresObjective : public Objective {
public:
    using Objective::Objective;
    double gradient(const Vector& w, Vector& gradient) override;
    double curvature(const Vector& w, Vector& gradient, Eigen::MatrixXd& curvature) override;

protected:
    double safe_value(const Vector& w) override;
};

}  // namespace fit

#endif
