#include "objective.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace fit {
namespace {

// Half the precision of the likelihood's core, (1/3)^-2 / 2.
constexpr double half_precision = 4.5;

// Rows of a Jacobian held at a time.
constexpr Eigen::Index rows_at_a_time = 2048;

}  // namespace

Counts& Counts::operator+=(const Counts& other)
{
    values += other.values;
    gradients += other.gradients;
    products += other.products;
    hessians += other.hessians;
    jacobians += other.jacobians;
    refused += other.refused;
    return *this;
}

double Objective::value(const Vector& w)
{
    if (!guard_.safe(w)) {
        ++counts.refused;
        return std::numeric_limits<double>::infinity();
    }
    ++counts.values;
    const double value = safe_value(w);
    if (std::isfinite(value)) return value;
    ++counts.refused;
    return std::numeric_limits<double>::infinity();
}

double NormObjective::safe_value(const Vector& w)
{
    return network_.value(w, batch_);
}

double NormObjective::gradient(const Vector& w, Vector& gradient)
{
    ++counts.gradients;
    return network_.gradient(w, batch_, gradient);
}

Vector NormObjective::curvature_along(const Vector& w, const Vector& tangent)
{
    ++counts.products;
    return network_.hessian_times(w, batch_, tangent);
}

double NormObjective::curvature(const Vector& w, Vector& gradient, Eigen::MatrixXd& curvature)
{
    ++counts.hessians;
    Matrix hessian;
    const double value = network_.hessian(w, batch_, gradient, hessian);
    // Rounding leaves it a few units in the last place from symmetric.
    curvature = 0.5 * (hessian + hessian.transpose());
    return value;
}

double SquaresObjective::safe_value(const Vector& w)
{
    return half_precision * network_.residuals(w, batch_).array().square().mean();
}

double SquaresObjective::gradient(const Vector& w, Vector& gradient)
{
    ++counts.gradients;
    const Matrix residuals = network_.residuals(w, batch_);
    const auto elements = static_cast<double>(residuals.size());
    gradient = (2.0 * half_precision / elements) * network_.weighted_gradient(w, batch_, residuals);
    return half_precision * residuals.array().square().mean();
}

double SquaresObjective::curvature(const Vector& w, Vector& gradient, Eigen::MatrixXd& curvature)
{
    const double value = this->gradient(w, gradient);
    ++counts.jacobians;
    curvature.setZero(w.size(), w.size());
    for (Eigen::Index from = 0; from < batch_.x.rows(); from += rows_at_a_time) {
        const Eigen::Index rows = std::min(rows_at_a_time, batch_.x.rows() - from);
        const Batch part{batch_.x.middleRows(from, rows), batch_.y.middleRows(from, rows)};
        const Matrix jacobian = network_.jacobian(w, part);
        curvature.noalias() += jacobian.transpose() * jacobian;
    }
    curvature *= 2.0 * half_precision / static_cast<double>(batch_.y.size());
    return value;
}

}  // namespace fit
