#include "fit/objective.h"

namespace vemknfit {

double Objective::value(const Vector& w, Vector& gradient) const
{
    const double rows = loss_of_rows(w, gradient);
    const Vector pull = penalty_.cwiseProduct(w);
    gradient += pull;
    const double value = rows + 0.5 * pull.dot(w);
    if (watch_ != nullptr) watch_->evaluated(value);
    return value;
}

double Objective::loss_of_rows(const Vector& w, Vector& gradient) const
{
    return network_.likelihood(w, batch_.inputs, batch_.targets, gradient);
}

double ObjectiveOfSides::loss_of_rows(const Vector& w, Vector& gradient) const
{
    const Vector residuals = network_.outputs(w, batch_.inputs) - batch_.targets;
    Vector slopes(residuals.size());
    double sum = 0.0;
    for (Eigen::Index r = 0; r < residuals.size(); ++r) {
        const Side side = sides_[static_cast<std::size_t>(r)];
        sum += loss(residuals[r], side);
        slopes[r] = loss_slope(residuals[r], side);
    }
    gradient = network_.gradient(w, batch_.inputs, slopes);
    return sum;
}

Matrix Objective::hessian(const Vector& w) const
{
    Matrix all = network_.likelihood_hessian(w, batch_.inputs, batch_.targets);
    all.diagonal() += penalty_;
    return all;
}

std::vector<Side> sides_of(const Network& network, const Batch& batch, const Vector& w)
{
    std::vector<Side> sides;
    for (const double residual : Vector(network.outputs(w, batch.inputs) - batch.targets)) {
        sides.push_back(side_of(residual));
    }
    return sides;
}

}  // namespace vemknfit
