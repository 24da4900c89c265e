#include "fit/uncertainty.h"

#include <Eigen/Cholesky>
#include <Eigen/Eigenvalues>
#include <algorithm>
#include <optional>

namespace vemknfit {
namespace {

// B: the sum over rows of the products of their gradients, some rows at a time.
Eigen::MatrixXd products_of_gradients(const Network& network, const Vector& w, const Batch& batch)
{
    constexpr Eigen::Index AT_A_TIME = 1024;
    Eigen::MatrixXd sum = Eigen::MatrixXd::Zero(network.size(), network.size());
    for (Eigen::Index from = 0; from < batch.targets.size(); from += AT_A_TIME) {
        const Eigen::Index rows = std::min(AT_A_TIME, batch.targets.size() - from);
        const Matrix gradients = network.likelihood_gradients(
            w, batch.inputs.middleRows(from, rows), batch.targets.segment(from, rows));
        sum.selfadjointView<Eigen::Lower>().rankUpdate(gradients.transpose());
    }
    return sum.selfadjointView<Eigen::Lower>();
}

// Columns: the directions in which the rows, or the penalty, have anything to say. In all others, as of units that have become
// straight lines, the curve stays where it is, and what is left of A is the rounding of second derivatives.
Eigen::MatrixXd directions_of(const Eigen::MatrixXd& spread)
{
    constexpr double NOTHING = 1e-7;  // of what they say in the direction that they say most in
    const Eigen::SelfAdjointEigenSolver<Eigen::MatrixXd> solver(spread);
    const Vector& sizes = solver.eigenvalues();  // from the smallest on
    const auto left_out = (sizes.array() <= NOTHING * sizes[sizes.size() - 1]).count();
    return solver.eigenvectors().rightCols(sizes.size() - left_out);
}

// A^-1 over the directions that move the curve; none where A does not curve upwards in one of them.
std::optional<Eigen::MatrixXd> inverse_of(const Matrix& curvature, const Eigen::MatrixXd& spread)
{
    const Eigen::MatrixXd directions = directions_of(spread);
    const Eigen::LLT<Eigen::MatrixXd> factor(directions.transpose() * curvature * directions);
    if (factor.info() != Eigen::Success) return {};
    return directions * factor.solve(directions.transpose());
}

// The sum over rows of what a fitted value moves by when its target moves, outliers aside: the parameters of a linear model. The
// trace of A^-1 (A - L) would count second derivatives of the curve with them, and come out below zero for a line under a
// large penalty.
double parameters_of(const Matrix& core_jacobian, const Eigen::MatrixXd& inverse)
{
    const double moves = (core_jacobian * inverse).cwiseProduct(core_jacobian).sum();
    return std::min(CORE_CURVATURE * moves, static_cast<double>(inverse.rows()));
}

Uncertainty none(const std::string& why)
{
    return {.why_none = why};
}

}  // namespace

Uncertainty uncertainty_of(const CurveFit& fit, const Curve& curve)
{
    const Network& network = fit.network();
    if (network.size() > MOST_UNCERTAIN_WEIGHTS)
        return none("standard errors are not formed of more than " +
                    std::to_string(MOST_UNCERTAIN_WEIGHTS) + " weights");
    const Batch batch = fit.all_rows(curve);
    const Vector penalty = penalty_of(network, fit.terms().decay, curve.core);
    const Objective objective(network, batch, penalty);
    const Matrix curvature = objective.hessian(curve.w);
    Eigen::MatrixXd spread = products_of_gradients(network, curve.w, batch);
    spread.diagonal() += penalty;
    if (!curvature.allFinite() || !spread.allFinite())
        return none("derivatives of the curve are not finite");
    const auto inverse = inverse_of(curvature, spread);
    if (!inverse)
        return none(
            "there are no standard errors: the rows do not determine all weights, since the "
            "objective does not curve upwards in every direction; take fewer units or a larger "
            "decay");
    const auto rows = static_cast<double>(batch.targets.size());
    const double parameters = parameters_of(fit.core_jacobian(curve), *inverse);
    if (rows - parameters < 1.0)
        return none(
            "there are no standard errors: the curve has as many parameters as there are rows; "
            "take fewer units or a larger decay");
    // Symmetric to the last bit, so that half of it is all of it.
    const Matrix sandwich = rows / (rows - parameters) * *inverse * spread * *inverse;
    return {.covariance = 0.5 * (sandwich + sandwich.transpose()),
            .parameters = parameters,
            .freedom = rows - parameters};
}

}  // namespace vemknfit
