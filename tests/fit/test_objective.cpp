#include <gtest/gtest.h>

#include <cmath>

#include "fit/minimise.h"
#include "fit/newton.h"
#include "support/random.h"

using namespace vemknfit;

namespace {

Vector vector(const std::vector<double>& values)
{
    return Eigen::Map<const Vector>(values.data(), static_cast<Eigen::Index>(values.size()));
}

struct Problem {
    static constexpr Eigen::Index ROWS = 40;

    Random random{5};
    Network network{2, {4, 3}};
    Matrix inputs = Eigen::Map<const Matrix>(random.list(2 * ROWS).data(), ROWS, 2);
    Batch batch{inputs, vector(random.list(ROWS, -1.0, 4.0))};
    Vector penalty = vector(random.list(static_cast<std::size_t>(network.size()), 0.0, 0.5));
    Vector w = vector(random.list(static_cast<std::size_t>(network.size())));
};

void expect_gradient_of_differences(const Objective& objective, const Vector& w)
{
    constexpr double H = 1e-4;
    Vector gradient, ignored;
    objective.value(w, gradient);
    for (Eigen::Index k = 0; k < w.size(); ++k) {
        const auto at = [&](double step) {
            Vector moved = w;
            moved[k] += step;
            return objective.value(moved, ignored);
        };
        const double slope = (8.0 * (at(H) - at(-H)) - (at(2 * H) - at(-2 * H))) / (12.0 * H);
        EXPECT_NEAR(slope, gradient[k], 1e-7 * (1.0 + std::abs(slope))) << k;
    }
}

}  // namespace

TEST(FitNetwork, KnowsItsWeightsAndBiases)
{
    const Network network(2, {4, 3});
    EXPECT_EQ(4 + 2 * 4 + 3 + 4 * 3 + 1 + 3, network.size());
    EXPECT_EQ(4 + 8 + 3 + 12, network.output_layer());
    EXPECT_EQ(8.0 + 12.0 + 3.0, network.is_weight().sum());
    EXPECT_EQ(0.0, network.is_weight()[network.output_layer()]);
}

TEST(FitNetwork, RowsOfTheJacobianAreGradientsOfOutputs)
{
    const Problem p;
    const Matrix jacobian = p.network.jacobian(p.w, p.inputs);
    ASSERT_EQ(Problem::ROWS, jacobian.rows());
    constexpr double H = 1e-5;
    for (Eigen::Index k = 0; k < p.w.size(); ++k) {
        Vector up = p.w, down = p.w;
        up[k] += H;
        down[k] -= H;
        const Vector slope =
            (p.network.outputs(up, p.inputs) - p.network.outputs(down, p.inputs)) / (2.0 * H);
        EXPECT_LE((slope - jacobian.col(k)).cwiseAbs().maxCoeff(), 1e-8) << k;
    }
}

TEST(FitObjective, HasTheGradientOfDifferences)
{
    const Problem p;
    expect_gradient_of_differences(Objective(p.network, p.batch, p.penalty), p.w);
    const auto sides = sides_of(p.network, p.batch, p.w);
    expect_gradient_of_differences(ObjectiveOfSides(p.network, p.batch, p.penalty, sides), p.w);
}

TEST(FitObjective, IsThatOfTheSidesWhereTheRowsStandThere)
{
    const Problem p;
    Vector one, other;
    const auto sides = sides_of(p.network, p.batch, p.w);
    const double value = Objective(p.network, p.batch, p.penalty).value(p.w, one);
    const ObjectiveOfSides of_sides(p.network, p.batch, p.penalty, sides);
    EXPECT_NEAR(value, of_sides.value(p.w, other), 1e-12 * value);
    EXPECT_LE((one - other).norm(), 1e-12 * one.norm());
    EXPECT_NE(0, std::count(sides.begin(), sides.end(), Side::core));
    EXPECT_NE(0, std::count(sides.begin(), sides.end(), Side::tail));
}

TEST(FitObjective, AddsHalfOfThePenaltyTimesTheSquares)
{
    const Problem p;
    Vector gradient, without;
    const Vector none = Vector::Zero(p.w.size());
    const double value = Objective(p.network, p.batch, p.penalty).value(p.w, gradient);
    const double bare = Objective(p.network, p.batch, none).value(p.w, without);
    EXPECT_NEAR(0.5 * (p.penalty.array() * p.w.array().square()).sum(), value - bare, 1e-10);
}

TEST(FitObjective, HasTheHessianOfItsGradients)
{
    const Problem p;
    const ObjectiveOfSides objective(
        p.network, p.batch, p.penalty, sides_of(p.network, p.batch, p.w));
    const Matrix hessian = objective.hessian(p.w);
    constexpr double H = 1e-5;
    for (Eigen::Index k = 0; k < p.w.size(); ++k) {
        Vector above = p.w, below = p.w, up, down;
        above[k] += H;
        below[k] -= H;
        objective.value(above, up);
        objective.value(below, down);
        const Vector column = (up - down) / (2.0 * H);
        EXPECT_LT((column - hessian.col(k)).norm(), 1e-6 * (1.0 + column.norm())) << k;
    }
}

TEST(Newton, FindsTheMinimum)
{
    Problem p;
    p.batch.targets = p.network.outputs(p.w, p.inputs).array() + 0.1;
    p.penalty.array() += 0.1;
    const std::vector<Side> core(Problem::ROWS, Side::core);
    const ObjectiveOfSides objective(p.network, p.batch, p.penalty, core);
    Vector gradient;
    const double before = objective.value(p.w, gradient);
    const Vector w = newton(objective, p.w, 100);
    EXPECT_LT(objective.value(w, gradient), before);
    EXPECT_LT(gradient.norm(), 1e-7);
    // Another way to it.
    const Vector other = newton(objective, 1.01 * p.w, 100);
    EXPECT_LT((other - w).norm(), 1e-6 * w.norm());
}

TEST(Minimise, EndsAtAStationaryPointWhereSidesAreKept)
{
    const Problem p;
    const ObjectiveOfSides objective(
        p.network, p.batch, p.penalty, sides_of(p.network, p.batch, p.w));
    Vector before, after;
    const double at_start = objective.value(p.w, before);
    const Vector w = minimise(objective, p.w, {3000, 1e-14, 0});
    EXPECT_LT(objective.value(w, after), at_start);
    EXPECT_LT(after.norm(), 1e-4 * before.norm());
}

TEST(Minimise, NeverEndsHigherThanItBegan)
{
    const Problem p;
    const Objective objective(p.network, p.batch, p.penalty);
    Vector ignored;
    const double at_start = objective.value(p.w, ignored);
    for (const int evaluations : {1, 2, 10, 300}) {
        const Vector w = minimise(objective, p.w, {evaluations, 1e-8});
        EXPECT_LE(objective.value(w, ignored), at_start) << evaluations;
    }
}

TEST(Minimise, LeavesWeightsFromWhichNothingIsFinite)
{
    const Problem p;
    const Vector far = Vector::Constant(p.w.size(), 1e200);
    EXPECT_EQ(far, minimise(Objective(p.network, p.batch, p.penalty), far, {50, 1e-8}));
}
