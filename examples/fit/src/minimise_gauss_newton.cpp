#include <Eigen/Cholesky>
#include <algorithm>
#include <cmath>

#include "minimise.h"

namespace fit {

std::string minimise_gauss_newton(SquaresObjective& objective,
                                  Vector w,
                                  const StopRule& stop,
                                  Monitor& monitor)
{
    Vector gradient;
    Eigen::MatrixXd matrix;
    double value = objective.curvature(w, gradient, matrix);
    double damping = 1e-3 * matrix.diagonal().maxCoeff();
    double growth = 2.0;
    bool go_on = monitor.improved(w, value, objective.counts.total());
    while (go_on) {
        if (objective.counts.total() >= stop.max_evaluations) return "evaluation limit";
        Eigen::MatrixXd damped = matrix;
        damped.diagonal().array() += damping;
        const Vector step = -damped.ldlt().solve(gradient);
        const double expected = -gradient.dot(step) - 0.5 * step.dot(matrix * step);
        if (!(expected > stop.tolerance * value)) return "converged";
        const double trial = objective.value(w + step);
        if (!(trial < value)) {
            damping *= growth;
            growth *= 2.0;
            if (step.norm() < 1e-12 * (1.0 + w.norm())) return "no lower point nearby";
            continue;
        }
        // Nielsen's rule: less damping the better the model foretold the gain.
        const double agreement = (value - trial) / expected;
        damping *= std::max(1.0 / 3.0, 1.0 - std::pow(2.0 * agreement - 1.0, 3));
        growth = 2.0;
        w += step;
        value = objective.curvature(w, gradient, matrix);
        go_on = monitor.improved(w, value, objective.counts.total());
    }
    return "held-out error no longer falls";
}

}  // namespace fit
