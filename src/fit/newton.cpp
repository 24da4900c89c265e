#include "fit/newton.h"

#include <Eigen/Eigenvalues>
#include <algorithm>
#include <cmath>

namespace vemknfit {
namespace {

// An objective around a point, in the coordinates of its curvatures, of which a negative one counts as a positive one: so a saddle
// is left and not sought [Dauphin et al., Identifying and attacking the saddle point problem in high-dimensional non-convex
// optimization, NIPS 27 (2014)].
class Parabola {
public:
    Parabola(const Matrix& hessian, const Vector& gradient)
        : curvatures_(hessian),
          slopes_((curvatures_.eigenvectors().transpose() * gradient).array()),
          sizes_(curvatures_.eigenvalues().array().abs())
    {
        sizes_ = sizes_.max(1e-13 * sizes_.maxCoeff());  // less is rounding
    }

    double mean_curvature() const { return sizes_.mean(); }

    // Twice what the step to the minimum gains.
    double decrement() const { return (slopes_.square() / sizes_).sum(); }

    Vector step(double damping) const
    {
        return -(curvatures_.eigenvectors() * (slopes_ / (sizes_ + damping)).matrix());
    }

private:
    Eigen::SelfAdjointEigenSolver<Eigen::MatrixXd> curvatures_;
    Eigen::ArrayXd slopes_, sizes_;
};

}  // namespace

Vector newton(const ObjectiveOfSides& objective, Vector w, int steps)
{
    constexpr double STANDS = 1e-14, OF_ROUNDING = 1e-13;
    constexpr double LEAST_DAMPING = 1e-10, MOST_DAMPING = 1e4;  // of the mean curvature
    Vector gradient, there_gradient;
    double value = objective.value(w, gradient), damping = 0.0;
    for (int step = 0; step < steps; ++step) {
        const Matrix hessian = objective.hessian(w);
        if (!hessian.allFinite()) break;
        const Parabola parabola(hessian, gradient);
        if (parabola.decrement() <= STANDS) break;
        bool went_down = false;
        while (!went_down && damping <= MOST_DAMPING) {
            const Vector by = parabola.step(damping * parabola.mean_curvature());
            const double there = objective.value(w + by, there_gradient);
            went_down = there <= value + OF_ROUNDING * std::abs(value);
            if (went_down) {
                w += by;
                value = there;
                gradient.swap(there_gradient);
                damping = damping > LEAST_DAMPING ? 0.1 * damping : 0.0;
            } else {
                damping = std::max(10.0 * damping, LEAST_DAMPING);
            }
        }
        if (!went_down) break;
    }
    return w;
}

int steps_of_newton(Eigen::Index weights, Eigen::Index rows)
{
    constexpr double WORK = 4e8;  // products of a row with a weight and a direction
    constexpr double LEAST = 1.0, FEW = 20.0, MOST = 300.0;
    constexpr Eigen::Index MOST_WEIGHTS = 300;
    const auto n = static_cast<double>(weights);
    const double affordable = WORK / (n * n * static_cast<double>(rows));
    if (weights > MOST_WEIGHTS || affordable < LEAST) return 0;
    return static_cast<int>(std::clamp(affordable, FEW, MOST));
}

}  // namespace vemknfit
