#include "fit/robust_fit.h"

#include <Eigen/Cholesky>
#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

#include "fit/robust_scale.h"

namespace vemknfit {
namespace {

constexpr int EVALUATIONS = 250, OF_A_CONCENTRATION = 100, OF_THE_LAST = 2000;
constexpr double TOLERANCE = 1e-8, LAST_TOLERANCE = 1e-13;

Rows smallest(const Vector& residuals, double share)
{
    Rows rows(static_cast<std::size_t>(residuals.size()));
    std::iota(rows.begin(), rows.end(), Eigen::Index{0});
    const auto kept = static_cast<std::ptrdiff_t>(share * static_cast<double>(rows.size())) + 1;
    const auto end = rows.begin() + std::min<std::ptrdiff_t>(kept, residuals.size());
    std::stable_sort(rows.begin(), rows.end(), [&](Eigen::Index a, Eigen::Index b) {
        return std::abs(residuals[a]) < std::abs(residuals[b]);
    });
    rows.erase(end, rows.end());
    // In their own order, in which sums are taken.
    std::sort(rows.begin(), rows.end());
    return rows;
}

}  // namespace

Vector predictions(const Network& network, const Curve& curve, const Matrix& inputs)
{
    return (curve.unit() * network.outputs(curve.w, inputs)).array() + curve.shift;
}

RobustFit::RobustFit(const Network& network,
                     const Matrix& inputs,
                     Vector y,
                     const FitSettings& settings)
    : network_(network), inputs_(inputs), y_(std::move(y)), settings_(settings)
{
}

// Those of the output layer in units of y, so that they pull as much whatever the core.
Vector RobustFit::penalty(double core) const
{
    Vector d = settings_.decay * network_.is_weight();
    d.tail(network_.size() - network_.output_layer()) *= 9.0 * core * core;
    return d;
}

Vector RobustFit::targets(const Curve& curve) const
{
    return (y_.array() - curve.shift) / curve.unit();
}

Vector RobustFit::residuals(const Curve& curve) const
{
    return y_ - predictions(network_, curve, inputs_);
}

Batch RobustFit::all_rows(const Curve& curve) const
{
    return {inputs_, targets(curve)};
}

Curve RobustFit::minimised(Curve curve, const Batch& batch, int evaluations) const
{
    const Vector d = penalty(curve.core);
    curve.w = minimise(Objective(network_, batch, d), curve.w, {evaluations, TOLERANCE});
    return curve;
}

Curve RobustFit::minimised(const Curve& curve, int evaluations) const
{
    return minimised(curve, all_rows(curve), evaluations);
}

Curve RobustFit::minimised_on(const Rows& rows, const Curve& curve, int evaluations) const
{
    const Matrix inputs = inputs_(rows, Eigen::all);
    return minimised(curve, {inputs, targets(curve)(rows)}, evaluations);
}

Curve RobustFit::with_sides_kept(Curve curve) const
{
    constexpr int MOST_ROUNDS = 20;
    const Batch batch = all_rows(curve);
    const Vector d = penalty(curve.core);
    std::vector<Side> sides = sides_of(network_, batch, curve.w);
    for (int round = 0; round < MOST_ROUNDS; ++round) {
        const ObjectiveOfSides objective(network_, batch, d, sides);
        curve.w = minimise(objective, curve.w, {OF_THE_LAST, LAST_TOLERANCE});
        std::vector<Side> now = sides_of(network_, batch, curve.w);
        if (now == sides) break;
        sides = std::move(now);
    }
    return curve;
}

// Nearly the same curve in units of another core: exactly where softplus is the identity, far above 0. So it has to be fitted
// again.
Curve RobustFit::with_core(Curve curve, double core) const
{
    curve.w.tail(network_.size() - network_.output_layer()) *= curve.core / core;
    curve.core = core;
    return curve;
}

// Weights of a size that suits each layer's width, and an output bias that brings the median of the outputs to that of the
// targets: with all rows in the tails nothing would pull.
Curve RobustFit::start(std::uint32_t stream) const
{
    constexpr int HALVINGS = 50;
    // Far enough below that the output's softplus is all but straight where the data are, and not by the lowest y.
    Curve curve{Vector(network_.size()), 1.0, std::min(-6.0, 1.2 * quantile(y_, 0.02)) - 3.0};
    Random random(settings_.seed, stream);
    Eigen::Index at = 0;
    const auto& widths = network_.widths();
    for (std::size_t layer = 0; layer + 1 < widths.size(); ++layer) {
        const double size = 1.0 / std::sqrt(static_cast<double>(widths[layer]));
        for (Eigen::Index i = 0; i < widths[layer + 1]; ++i) curve.w[at++] = random.normal();
        for (Eigen::Index i = 0; i < widths[layer] * widths[layer + 1]; ++i)
            curve.w[at++] = size * random.normal();
    }
    const double wanted = -curve.shift / curve.unit();
    double low = -wanted - 20.0, high = wanted + 20.0;
    double& bias = curve.w[network_.output_layer()];
    for (int i = 0; i < HALVINGS; ++i) {
        bias = 0.5 * (low + high);
        (median(network_.outputs(curve.w, inputs_)) < wanted ? low : high) = bias;
    }
    return curve;
}

Curve RobustFit::concentrated(Curve curve) const
{
    constexpr int STEPS = 6;
    constexpr double SHARE = 0.55, LEAST_CORE = 0.003;
    Rows rows;
    for (int step = 0; step < STEPS; ++step) {
        rows = smallest(residuals(curve), SHARE);
        curve = minimised_on(rows, curve, OF_A_CONCENTRATION);
    }
    const double core = std::clamp(m_scale(residuals(curve)), LEAST_CORE, 1.0);
    return minimised_on(rows, with_core(curve, core), EVALUATIONS);
}

void RobustFit::descend(Curve curve)
{
    constexpr double STEP = 2.0, LOWEST = 0.2, LEAST_CORE = 0.003;
    double smallest_scale = std::numeric_limits<double>::infinity();
    while (true) {
        const double scale = m_scale(residuals(curve));
        candidates_.push_back({scale, curve});
        smallest_scale = std::min(smallest_scale, scale);
        const double lower = curve.core / STEP;
        if (lower < LOWEST * smallest_scale || lower < LEAST_CORE) return;
        curve = minimised(with_core(curve, lower), EVALUATIONS);
    }
}

// Of a Gaussian that the rows within three scales are from, as for the parameters that these rows determine: the trace of the
// hat matrix, by Gauss and Newton.
double RobustFit::own_core(const Curve& curve) const
{
    const Batch batch = all_rows(curve);
    const std::vector<Side> sides = sides_of(network_, batch, curve.w);
    Matrix jacobian = network_.jacobian(curve.w, inputs_);
    for (Eigen::Index r = 0; r < jacobian.rows(); ++r) {
        if (sides[static_cast<std::size_t>(r)] == Side::tail) jacobian.row(r).setZero();
    }
    const Eigen::MatrixXd data = CORE_CURVATURE * jacobian.transpose() * jacobian;
    Eigen::MatrixXd all = data;
    all.diagonal() += penalty(curve.core);
    all.diagonal().array() += 1e-12 * data.trace();
    const double parameters = all.ldlt().solve(data).trace();
    const Vector r = residuals(curve);
    return inner_deviation(r, m_scale(r), parameters);
}

RobustFit::Candidate RobustFit::refined(Curve curve) const
{
    constexpr int MOST_ROUNDS = 6;
    constexpr double STANDS = 0.01, LEAST_CORE = 0.002;
    double core = std::max(m_scale(residuals(curve)), LEAST_CORE);
    for (int round = 0; round < MOST_ROUNDS; ++round) {
        const double before = curve.core;
        curve = minimised(with_core(curve, core), EVALUATIONS);
        core = std::max({own_core(curve), 0.5 * curve.core, LEAST_CORE});
        if (round > 0 && std::abs(core - before) <= STANDS * before) break;
    }
    curve = with_sides_kept(with_core(curve, core));
    return {m_scale(residuals(curve)), curve};
}

Curve RobustFit::run()
{
    constexpr std::size_t REFINED = 3;
    candidates_.clear();
    for (int i = 0; i < settings_.starts; ++i) {
        const Curve wide = minimised(start(static_cast<std::uint32_t>(i)), EVALUATIONS);
        descend(wide);
        descend(concentrated(wide));
    }
    std::stable_sort(candidates_.begin(), candidates_.end(), [](const auto& a, const auto& b) {
        return a.scale < b.scale;
    });
    Candidate best{};
    for (std::size_t i = 0; i < std::min(REFINED, candidates_.size()); ++i) {
        Candidate candidate = refined(candidates_[i].curve);
        if (i == 0 || candidate.scale < best.scale) best = std::move(candidate);
    }
    return best.curve;
}

}  // namespace vemknfit
