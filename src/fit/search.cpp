#include "fit/search.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

#include "fit/random.h"
#include "fit/robust_scale.h"

namespace vemknfit {
namespace {

constexpr int EVALUATIONS = 250;
// Of a ladder: below, targets count as met exactly.
constexpr double LEAST_CORE = 0.003;

struct Candidate {
    double scale = std::numeric_limits<double>::infinity();
    Curve curve{};
};

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

Curve concentrated(const CurveFit& fit, Curve curve)
{
    constexpr int STEPS = 6, OF_A_STEP = 100;
    constexpr double SHARE = 0.55;
    Rows rows;
    for (int step = 0; step < STEPS; ++step) {
        rows = smallest(fit.residuals(curve), SHARE);
        curve = fit.minimised_on(rows, curve, OF_A_STEP);
    }
    const double core = std::clamp(m_scale(fit.residuals(curve)), LEAST_CORE, 1.0);
    return fit.minimised_on(rows, with_core(fit.network(), curve, core), EVALUATIONS);
}

void descend(const CurveFit& fit, Curve curve, std::vector<Candidate>& candidates)
{
    constexpr double STEP = 2.0, LOWEST = 0.2;
    double smallest_scale = std::numeric_limits<double>::infinity();
    while (true) {
        double scale = m_scale(fit.residuals(curve));
        if (std::isnan(scale)) scale = std::numeric_limits<double>::infinity();
        candidates.push_back({fit.fair_scale(curve), curve});
        smallest_scale = std::min(smallest_scale, scale);
        const double lower = curve.core / STEP;
        if (!(lower >= std::max(LOWEST * smallest_scale, LEAST_CORE))) return;
        curve = fit.minimised(with_core(fit.network(), curve, lower), EVALUATIONS);
    }
}

}  // namespace

Curve random_start(const CurveFit& fit, std::uint64_t seed, std::uint32_t stream)
{
    constexpr int HALVINGS = 50;
    const Network& network = fit.network();
    // Far enough below that the output's softplus is all but straight where the data are, and not by the lowest y.
    Curve curve{Vector(network.size()), 1.0, std::min(-6.0, 1.2 * quantile(fit.y(), 0.02)) - 3.0};
    Random random(seed, stream);
    Eigen::Index at = 0;
    const auto& widths = network.widths();
    for (std::size_t layer = 0; layer + 1 < widths.size(); ++layer) {
        const double size = 1.0 / std::sqrt(static_cast<double>(widths[layer]));
        for (Eigen::Index i = 0; i < widths[layer + 1]; ++i) curve.w[at++] = random.normal();
        for (Eigen::Index i = 0; i < widths[layer] * widths[layer + 1]; ++i)
            curve.w[at++] = size * random.normal();
    }
    const double wanted = -curve.shift / curve.unit();
    double low = -wanted - 20.0, high = wanted + 20.0;
    double& bias = curve.w[network.output_layer()];
    for (int i = 0; i < HALVINGS; ++i) {
        bias = 0.5 * (low + high);
        (median(network.outputs(curve.w, fit.inputs())) < wanted ? low : high) = bias;
    }
    return curve;
}

Curve found_curve(const CurveFit& fit, int starts, std::uint64_t seed)
{
    constexpr std::size_t REFINED = 3;
    std::vector<Candidate> candidates;
    for (int i = 0; i < starts; ++i) {
        if (Watch* const watch = fit.terms().watch) watch->enter(Stage::search, i + 1);
        const Curve wide =
            fit.minimised(random_start(fit, seed, static_cast<std::uint32_t>(i)), EVALUATIONS);
        descend(fit, wide, candidates);
        descend(fit, concentrated(fit, wide), candidates);
    }
    std::stable_sort(candidates.begin(), candidates.end(), [](const auto& a, const auto& b) {
        return a.scale < b.scale;
    });
    Candidate best;
    for (std::size_t i = 0; i < std::min(REFINED, candidates.size()); ++i) {
        Curve curve = fit.refined(candidates[i].curve);
        const double scale = fit.fair_scale(curve);
        if (i == 0 || scale < best.scale) best = {scale, std::move(curve)};
    }
    return best.curve;
}

}  // namespace vemknfit
