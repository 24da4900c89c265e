#include "fit/curve_fit.h"

#include <Eigen/Cholesky>
#include <algorithm>
#include <cmath>
#include <limits>

#include "fit/minimise.h"
#include "fit/newton.h"
#include "fit/robust_scale.h"

namespace vemknfit {
namespace {

constexpr int EVALUATIONS = 250, OF_THE_LAST = 2000;
constexpr double TOLERANCE = 1e-8, LAST_TOLERANCE = 1e-13;
constexpr unsigned ALL_STEPS = 0;
// A core of targets that a curve goes through: in units of the targets' spread.
constexpr double LEAST_CORE = 0.002;

}  // namespace

Curve with_core(const Network& network, Curve curve, double core)
{
    curve.w.tail(network.size() - network.output_layer()) *= curve.core / core;
    curve.core = core;
    return curve;
}

Vector penalty_of(const Network& network, double decay, double core)
{
    Vector d = decay * network.is_weight();
    d.tail(network.size() - network.output_layer()) *= 9.0 * core * core;
    return d;
}

Vector predictions(const Network& network, const Curve& curve, const Matrix& inputs)
{
    return (curve.unit() * network.outputs(curve.w, inputs)).array() + curve.shift;
}

CurveFit::CurveFit(const Network& network, const Matrix& inputs, Vector y, const Terms& terms)
    : network_(network), inputs_(inputs), y_(std::move(y)), terms_(terms)
{
}

Vector CurveFit::residuals(const Curve& curve) const
{
    return y_ - predictions(network_, curve, inputs_);
}

Batch CurveFit::all_rows(const Curve& curve) const
{
    return {inputs_, (y_.array() - curve.shift) / curve.unit()};
}

void CurveFit::report_core(double core) const
{
    if (terms_.watch != nullptr) terms_.watch->take_core(core);
}

Curve CurveFit::minimised(Curve curve, const Batch& batch, int evaluations) const
{
    report_core(curve.core);
    const Vector d = penalty(curve.core);
    curve.w =
        minimise(Objective(network_, batch, d, terms_.watch), curve.w, {evaluations, TOLERANCE});
    return curve;
}

Curve CurveFit::minimised(const Curve& curve, int evaluations) const
{
    return minimised(curve, all_rows(curve), evaluations);
}

Curve CurveFit::minimised_on(const Rows& rows, const Curve& curve, int evaluations) const
{
    const Matrix inputs = inputs_(rows, Eigen::all);
    return minimised(curve, {inputs, all_rows(curve).targets(rows)}, evaluations);
}

Curve CurveFit::with_sides_kept(Curve curve, int steps) const
{
    constexpr int MOST_ROUNDS = 20;
    report_core(curve.core);
    const Batch batch = all_rows(curve);
    const Vector d = penalty(curve.core);
    std::vector<Side> sides = sides_of(network_, batch, curve.w);
    for (int round = 0; round < MOST_ROUNDS; ++round) {
        const ObjectiveOfSides objective(network_, batch, d, sides, terms_.watch);
        curve.w = steps > 0
                      ? newton(objective, curve.w, steps)
                      : minimise(objective, curve.w, {OF_THE_LAST, LAST_TOLERANCE, ALL_STEPS});
        std::vector<Side> now = sides_of(network_, batch, curve.w);
        if (now == sides) break;
        sides = std::move(now);
    }
    return curve;
}

Matrix CurveFit::core_jacobian(const Curve& curve) const
{
    const std::vector<Side> sides = sides_of(network_, all_rows(curve), curve.w);
    Matrix jacobian = network_.jacobian(curve.w, inputs_);
    for (Eigen::Index r = 0; r < jacobian.rows(); ++r) {
        if (sides[static_cast<std::size_t>(r)] == Side::tail) jacobian.row(r).setZero();
    }
    return jacobian;
}

// The trace of the hat matrix of the rows in the core, by Gauss and Newton: what they determine of the weights.
double CurveFit::parameters(const Curve& curve) const
{
    const Matrix jacobian = core_jacobian(curve);
    const Eigen::Index n = network_.size();
    Eigen::MatrixXd all = Eigen::MatrixXd::Zero(n, n);
    all.selfadjointView<Eigen::Lower>().rankUpdate(jacobian.transpose(), CORE_CURVATURE);
    const double ridge = 1e-12 * all.trace() + std::numeric_limits<double>::min();
    all.diagonal() += penalty(curve.core);
    all.diagonal().array() += ridge;
    const Eigen::LLT<Eigen::MatrixXd> factor(all);
    return CORE_CURVATURE * factor.matrixL().solve(jacobian.transpose()).squaredNorm();
}

double CurveFit::fair_scale(const Curve& curve) const
{
    constexpr double LEAST_SHARE = 1e-3;
    const Vector r = residuals(curve);
    if (!r.allFinite()) return std::numeric_limits<double>::infinity();
    const auto in_core = static_cast<double>((r.array().abs() < OUTLIER * curve.core).count());
    if (in_core == 0.0) return m_scale(r);
    return m_scale(r) / std::max(1.0 - parameters(curve) / in_core, LEAST_SHARE);
}

double CurveFit::own_core(const Curve& curve, double parameters) const
{
    if (terms_.core) return *terms_.core;
    const Vector r = residuals(curve);
    const double core = inner_deviation(r, m_scale(r), parameters);
    return std::max({core, 0.5 * curve.core, LEAST_CORE});
}

// Outliers just outside six cores pull nothing; once the core has grown over some of them, they raise it further, until it holds
// them all. So a core that grows by more than this from one that is tight goes back.
constexpr double RUNAWAY = 1.2;

Curve CurveFit::refined(Curve curve) const
{
    constexpr int MOST_ROUNDS = 6;
    constexpr double STANDS = 0.01;
    // Half of the M-scale, which many outliers raise.
    const double tight = std::max(0.5 * m_scale(residuals(curve)), LEAST_CORE);
    const Curve first = minimised(with_core(network_, curve, tight), EVALUATIONS);
    // Nearly the same for all cores that follow.
    const double determined = parameters(first);
    const double first_core = own_core(first, determined);
    double core = first_core;
    curve = first;
    for (int round = 0; round < MOST_ROUNDS && core <= RUNAWAY * first_core; ++round) {
        curve = minimised(with_core(network_, curve, core), EVALUATIONS);
        core = own_core(curve, determined);
        if (std::abs(core - curve.core) <= STANDS * curve.core) break;
    }
    if (core > RUNAWAY * first_core)
        return minimised(with_core(network_, first, first_core), EVALUATIONS);
    return minimised(with_core(network_, curve, core), EVALUATIONS);
}

Settled CurveFit::settled(const Curve& start) const
{
    constexpr int MOST_ROUNDS = 40, LONG_ROUNDS = 4;
    constexpr double STANDS = 1e-8;
    // In a long valley many steps hardly move a residual, nor the core.
    constexpr int STEPS_OF_A_ROUND = 8;
    const int all_steps = steps_of_newton(network_.size(), y_.size());
    int steps = std::min(all_steps, STEPS_OF_A_ROUND), long_rounds = 0;
    Curve curve = start;
    for (int round = 0; round < MOST_ROUNDS && long_rounds < LONG_ROUNDS; ++round) {
        if (steps == all_steps && all_steps > 0) ++long_rounds;
        curve = with_sides_kept(curve, steps);
        const double core = own_core(curve, parameters(curve));
        if (core > RUNAWAY * start.core) return {with_sides_kept(start, all_steps)};
        if (std::abs(core - curve.core) <= STANDS * curve.core) {
            if (steps == all_steps) return {curve, true};
            steps = all_steps;
        }
        curve = with_core(network_, curve, core);
    }
    return nearly_settled(curve, all_steps);
}

Settled CurveFit::nearly_settled(const Curve& start, int steps) const
{
    // Half the square of a tenth of a standard error, in the direction of the weights in which the steps went.
    constexpr double GAIN = 0.005;
    constexpr double OF_THE_CORE = 1e-3;
    const Batch batch = all_rows(start);
    const Vector d = penalty(start.core);
    Curve curve = with_sides_kept(start, steps);
    if (sides_of(network_, batch, start.w) != sides_of(network_, batch, curve.w)) return {curve};
    const Objective objective(network_, batch, d);
    Vector unused;
    const double gain = objective.value(start.w, unused) - objective.value(curve.w, unused);
    const double core = own_core(curve, parameters(curve));
    const bool stands = gain <= GAIN && std::abs(core - curve.core) <= OF_THE_CORE * curve.core;
    return {std::move(curve), stands};
}

}  // namespace vemknfit
