#include "fit/decay.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <vector>

#include "fit/random.h"
#include "fit/robust_scale.h"
#include "fit/search.h"

namespace vemknfit {
namespace {

constexpr double GRID[] = {0.03, 0.06, 0.1, 0.2, 0.3, 0.6, 1.0, 2.0, 3.0, 6.0, 10.0, 30.0};

// Rows dealt to folds, as evenly as they go.
std::vector<Rows> folds_of(Eigen::Index rows, std::uint64_t seed)
{
    constexpr std::uint32_t STREAM = 0x666f6c64;
    // With more rows fewer folds, which then differ less from all rows.
    constexpr Eigen::Index FEWEST = 3, MOST = 10, OF_SO_MANY_ROWS = 3000;
    Rows order(static_cast<std::size_t>(rows));
    std::iota(order.begin(), order.end(), Eigen::Index{0});
    Random random(seed, STREAM);
    for (std::size_t i = order.size(); i > 1; --i) {
        const auto j = static_cast<std::size_t>(random.uniform() * static_cast<double>(i));
        std::swap(order[i - 1], order[j]);
    }
    const Eigen::Index number =
        std::min(rows, std::clamp(OF_SO_MANY_ROWS / std::max<Eigen::Index>(rows, 1), FEWEST, MOST));
    std::vector<Rows> folds(static_cast<std::size_t>(number));
    for (std::size_t i = 0; i < order.size(); ++i) folds[i % folds.size()].push_back(order[i]);
    for (Rows& fold : folds) std::sort(fold.begin(), fold.end());
    return folds;
}

Rows all_but(const Rows& fold, Eigen::Index rows)
{
    Rows others;
    for (Eigen::Index r = 0; r < rows; ++r) {
        if (!std::binary_search(fold.begin(), fold.end(), r)) others.push_back(r);
    }
    return others;
}

// Bisquare, which gives up on a row five scales away: so outliers say nothing about a decay.
Vector bounded_losses(const Vector& residuals, double scale)
{
    constexpr double K = 4.685;
    const auto u = (residuals.array().abs() / (K * scale)).min(1.0);
    return 1.0 - (1.0 - u.square()).cube();
}

// Of the mean of independent numbers.
double standard_error(const Vector& numbers)
{
    const double square = (numbers.array() - numbers.mean()).square().mean();
    return std::sqrt(square / static_cast<double>(numbers.size()));
}

// Of so many models, each more cautious than the one before: the last one from the best on, one after the other, whose mean loss
// exceeds the least by no more than its standard error, row by row against the best. What a few hundred rows say beyond that is
// chance. [Breiman, Friedman, Olshen & Stone, Classification and Regression Trees (1984), 3.4.3]
std::size_t within_one_error(const std::vector<Vector>& losses)
{
    const auto best =
        std::min_element(losses.begin(), losses.end(), [](const Vector& a, const Vector& b) {
            return a.mean() < b.mean();
        });
    auto last = best;
    for (auto next = best + 1; next != losses.end(); ++next) {
        const Vector more = *next - *best;
        if (!(more.mean() <= standard_error(more))) break;
        last = next;
    }
    return static_cast<std::size_t>(last - losses.begin());
}

class CrossValidation {
public:
    CrossValidation(const CurveFit& fit, std::uint64_t seed)
        : fit_(fit), seed_(seed), folds_(folds_of(fit.y().size(), seed))
    {
    }

    // What the rows miss that each fold's curve was not fitted to.
    //   curve : of all rows at this decay
    Vector residuals(double decay, const Curve& curve) const
    {
        Vector of_curve = fit_.residuals(curve);
        Vector missed(fit_.y().size());
        for (const Rows& fold : folds_) {
            Rows others = all_but(fold, fit_.y().size());
            std::erase_if(others, [&](Eigen::Index r) {
                return !(std::abs(of_curve[r]) < OUTLIER * curve.core);
            });
            if (others.empty()) return of_curve;
            const Matrix held_out = fit_.inputs()(fold, Eigen::all);
            missed(fold) = fit_.y()(fold) -
                           predictions(fit_.network(), fitted(others, decay, curve.core), held_out);
        }
        return missed;
    }

private:
    // From a wide core, with which every start is good, to this one.
    Curve fitted(const Rows& rows, double decay, double core) const
    {
        constexpr int EVALUATIONS = 200;
        constexpr double STEP = 3.0;
        const Matrix inputs = fit_.inputs()(rows, Eigen::all);
        const CurveFit fit(
            fit_.network(), inputs, fit_.y()(rows), {.decay = decay, .watch = fit_.terms().watch});
        Curve curve = fit.minimised(random_start(fit, seed_, 0), EVALUATIONS);
        while (curve.core != core) {
            const double next = std::max(curve.core / STEP, core);
            curve = fit.minimised(with_core(fit_.network(), curve, next), EVALUATIONS);
        }
        return curve;
    }

    const CurveFit& fit_;
    const std::uint64_t seed_;
    const std::vector<Rows> folds_;
};

}  // namespace

Decay chosen_decay(const CurveFit& fit, const Curve& found, double at, std::uint64_t seed)
{
    const CrossValidation validation(fit, seed);
    std::vector<Vector> missed(std::size(GRID));
    std::vector<Curve> curves(std::size(GRID));
    const auto follow = [&](const Curve& from, std::size_t i) {
        Terms terms = fit.terms();
        terms.decay = GRID[i];
        curves[i] = CurveFit(fit.network(), fit.inputs(), fit.y(), terms).refined(from);
        missed[i] = validation.residuals(GRID[i], curves[i]);
    };
    const auto first = static_cast<std::size_t>(
        std::lower_bound(std::begin(GRID), std::end(GRID), at) - std::begin(GRID));
    for (std::size_t i = first; i < std::size(GRID); ++i)
        follow(i == first ? found : curves[i - 1], i);
    for (std::size_t i = first; i-- > 0;) follow(i + 1 == first ? found : curves[i + 1], i);

    double scale = std::numeric_limits<double>::infinity();
    for (const Vector& r : missed) scale = std::min(scale, m_scale(r));
    if (!(scale > 0.0)) return {at, found};
    std::vector<Vector> losses;
    losses.reserve(missed.size());
    for (const Vector& r : missed) losses.push_back(bounded_losses(r, scale));
    const std::size_t i = within_one_error(losses);
    return {GRID[i], curves[i]};
}

}  // namespace vemknfit
