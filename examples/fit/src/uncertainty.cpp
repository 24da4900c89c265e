#include "uncertainty.h"

#include <Eigen/Eigenvalues>
#include <algorithm>
#include <stdexcept>

namespace fit {
namespace {

// Of a weight that is uncertain by 1, the spread of the starting weights.
constexpr double least_curvature = 1.0;

constexpr Eigen::Index rows_at_a_time = 1024;

}  // namespace

Laplace::Laplace(const Eigen::MatrixXd& information)
{
    const Eigen::SelfAdjointEigenSolver<Eigen::MatrixXd> solver(information);
    if (solver.info() != Eigen::Success)
        throw std::runtime_error("the eigenvalues of the Hessian were not found");
    const Vector& curvature = solver.eigenvalues();
    raised_ = (curvature.array() < least_curvature).count();
    const double rounding = 1e-10 * curvature.cwiseAbs().maxCoeff();
    negative_ = (curvature.array() < -rounding).count();
    factor_ = solver.eigenvectors() *
              curvature.cwiseMax(least_curvature).cwiseSqrt().cwiseInverse().asDiagonal();
}

Laplace Laplace::of_covariance(const Eigen::MatrixXd& covariance)
{
    const Eigen::SelfAdjointEigenSolver<Eigen::MatrixXd> solver(covariance);
    if (solver.info() != Eigen::Success)
        throw std::runtime_error("the eigenvalues of the covariance were not found");
    Laplace laplace;
    laplace.factor_ =
        solver.eigenvectors() * solver.eigenvalues().cwiseMax(0.0).cwiseSqrt().asDiagonal();
    return laplace;
}

Vector Laplace::standard_errors(const Matrix& gradients) const
{
    return (gradients * factor_).rowwise().norm();
}

Eigen::MatrixXd information(Objective& objective, const Vector& w, bool least_squares)
{
    Vector gradient;
    Eigen::MatrixXd curvature;
    const double value = objective.curvature(w, gradient, curvature);
    const auto elements = static_cast<double>(objective.batch().y.size());
    if (!least_squares) return elements * curvature;
    // The value is the mean square in units of twice the core's variance, so this puts the estimated
    // variance in the place of the fixed one.
    const double freedom = std::max(1.0, elements - static_cast<double>(w.size()));
    const double variance_in_cores = 2.0 * value * elements / freedom;
    return (elements / variance_in_cores) * curvature;
}

Matrix prediction_errors(const Laplace& laplace,
                         const Network& plain,
                         const Vector& w,
                         const Matrix& x)
{
    const Eigen::Index outputs = plain.shape().outputs;
    Matrix errors(x.rows(), outputs);
    for (Eigen::Index from = 0; from < x.rows(); from += rows_at_a_time) {
        const Eigen::Index rows = std::min(rows_at_a_time, x.rows() - from);
        const Batch part{x.middleRows(from, rows), Matrix::Zero(rows, outputs)};
        const Vector found = laplace.standard_errors(plain.jacobian(w, part));
        errors.middleRows(from, rows) = Eigen::Map<const Matrix>(found.data(), rows, outputs);
    }
    return errors;
}

}  // namespace fit
