#include <gtest/gtest.h>

#include <Eigen/Cholesky>
#include <cmath>
#include <limits>
#include <stdexcept>

#include "fit/input_map.h"
#include "fit/minimise.h"
#include "fit/newton.h"
#include "fit/random.h"
#include "fit/robust_fit.h"
#include "fit/robust_scale.h"
#include "fit/target_scale.h"

using namespace vemknfit;

namespace {

constexpr Eigen::Index ROWS = 300;
constexpr double NOISE = 0.1;  // of the deviation of the truth

// Noisy rows of sin(2x) of which a share is raised by that many deviations of the truth, half more or less.
struct Data {
    Matrix inputs{ROWS, 1};
    Vector truth{ROWS}, y{ROWS};
    double deviation = 0.0;

    Data(std::uint64_t seed, double share, double size)
    {
        Random random(seed, 0);
        for (double& x : inputs.reshaped()) x = 4.0 * random.uniform() - 2.0;
        for (Eigen::Index r = 0; r < ROWS; ++r) truth[r] = std::sin(2.0 * inputs(r, 0));
        deviation = std::sqrt((truth.array() - truth.mean()).square().mean());
        for (Eigen::Index r = 0; r < ROWS; ++r)
            y[r] = truth[r] + NOISE * deviation * random.normal();
        for (double& value : y) {
            if (random.uniform() < share) value += size * deviation * (0.5 + random.uniform());
        }
        inputs = InputMap(inputs).apply(inputs);
    }
};

const Network& network()
{
    static const Network net(1, {6});
    return net;
}

struct Fitted {
    Vector predictions;
    double core;
};

// With a decay that is given, unless settings say otherwise.
Fitted fitted(const Data& data, const Vector& y, const FitSettings& settings = {.decay = 0.1})
{
    const TargetScale scale(y);
    const Curve curve = robust_fit(network(), data.inputs, scale.apply(y), settings).curve;
    return {scale.undo(predictions(network(), curve, data.inputs)), curve.core * scale.spread()};
}

struct Contamination {
    double share, size;
};

class RobustFits : public testing::TestWithParam<Contamination> {};

}  // namespace

TEST_P(RobustFits, FindTheCurveAndTheNoiseBehindOutliers)
{
    const Data data(11, GetParam().share, GetParam().size);
    const Fitted fit = fitted(data, data.y);
    const Vector error = fit.predictions - data.truth;
    EXPECT_LT(std::sqrt(error.array().square().mean()), 0.05 * data.deviation);
    EXPECT_NEAR(1.0, fit.core / (NOISE * data.deviation), 0.15);
}

INSTANTIATE_TEST_SUITE_P(Contaminated,
                         RobustFits,
                         testing::Values(Contamination{0.0, 0.0},
                                         Contamination{0.1, 1.0},
                                         Contamination{0.1, 100.0},
                                         Contamination{0.2, 4.0},
                                         Contamination{0.3, 2.0},
                                         Contamination{0.3, 20.0},
                                         Contamination{0.3, -8.0}));

// Of units that the data need, all of them: one more than that may be moved a long way without moving the curve.
TEST(RobustFit, EndsAtAMinimumWithEveryRowOnItsSideAndTheCoreOfItsResiduals)
{
    const Network small(1, {3});
    const Data data(12, 0.2, 8.0);
    const Vector y = TargetScale(data.y).apply(data.y);
    const Curve curve = robust_fit(small, data.inputs, y, {.decay = 0.1}).curve;
    const CurveFit fit(small, data.inputs, y, {0.1});
    const Batch batch = fit.all_rows(curve);
    const Vector penalty = penalty_of(small, 0.1, curve.core);
    const auto sides = sides_of(small, batch, curve.w);
    const ObjectiveOfSides objective(small, batch, penalty, sides);
    Vector gradient;
    objective.value(curve.w, gradient);
    const Eigen::LLT<Eigen::MatrixXd> curvature(objective.hessian(curve.w));
    ASSERT_EQ(Eigen::Success, curvature.info());
    // A step to the minimum would move predictions by so little of their standard error.
    EXPECT_LT(std::sqrt(gradient.dot(curvature.solve(gradient))), 1e-5);
    EXPECT_EQ(sides, sides_of(small, batch, minimise(objective, curve.w, {50, 1e-13})));
    EXPECT_NEAR(1.0, fit.settled(curve).curve.core / curve.core, 1e-6);
}

// More units than the data need: valleys without an end. Where a fit counts as settled, hundreds of steps more hardly move it.
TEST(RobustFit, HardlyMovesOnceItHasSettled)
{
    int settled = 0;
    for (const std::uint64_t seed : {1u, 3u, 4u, 5u}) {
        const Data data(seed, 0.1, 8.0);
        const Vector y = TargetScale(data.y).apply(data.y);
        const Fit fit = robust_fit(network(), data.inputs, y, {.decay = 0.1});
        if (!fit.is_settled) continue;
        ++settled;
        const Batch batch = CurveFit(network(), data.inputs, y, {0.1}).all_rows(fit.curve);
        const Vector penalty = penalty_of(network(), 0.1, fit.curve.core);
        Curve later = fit.curve;
        later.w =
            newton({network(), batch, penalty, sides_of(network(), batch, later.w)}, later.w, 1000);
        const Vector moved = predictions(network(), later, data.inputs) -
                             predictions(network(), fit.curve, data.inputs);
        // A standard error of the curve is about a quarter of the core, more at its ends.
        EXPECT_LT(median(moved.cwiseAbs()), 0.05 * fit.curve.core) << seed;
        EXPECT_LT(moved.cwiseAbs().maxCoeff(), 0.5 * fit.curve.core) << seed;
    }
    EXPECT_GE(settled, 3);
}

TEST(RobustFit, GivesTheSameBitsForTheSameSeed)
{
    const Data data(13, 0.1, 8.0);
    const Vector one = fitted(data, data.y).predictions;
    EXPECT_EQ(one, fitted(data, data.y).predictions);
    EXPECT_NE(one, fitted(data, data.y, {.decay = 0.1, .seed = 2}).predictions);
}

// To the bit where the scale is a power of two, else to what rounding leaves.
TEST(RobustFit, FollowsTheUnitsOfTheTargets)
{
    const Data data(14, 0.2, 8.0);
    const Vector expected = fitted(data, data.y).predictions;
    for (const double scale : {0x1p-600, 0x1p40, 0x1p1000}) {
        EXPECT_EQ(expected, fitted(data, scale * data.y).predictions / scale) << scale;
    }

    struct Units {
        double from, by;
    };

    for (const Units units : {Units{0.0, 1e-3}, Units{-30.0, 1000.0}, Units{500.0, 7e12}}) {
        const Vector moved = fitted(data, units.by * (data.y.array() + units.from)).predictions;
        const Vector back = moved.array() / units.by - units.from;
        EXPECT_LT((back - expected).cwiseAbs().maxCoeff(), 1e-6 * NOISE * data.deviation)
            << units.by;
    }
}

TEST(RobustFit, FollowsTheUnitsOfTheInputs)
{
    const Data data(14, 0.2, 8.0);
    const Vector expected = fitted(data, data.y).predictions;
    for (const double by : {1e-9, -1.0, 1e5}) {
        Data moved = data;
        moved.inputs = InputMap(by * (data.inputs.array() + 3.0).matrix())
                           .apply(by * (data.inputs.array() + 3.0).matrix());
        if (by < 0.0) moved.inputs *= -1.0;
        EXPECT_LT((fitted(moved, data.y).predictions - expected).cwiseAbs().maxCoeff(),
                  1e-6 * NOISE * data.deviation)
            << by;
    }
}

// More rows than are searched.
TEST(RobustFit, FitsAllOfManyRows)
{
    const Eigen::Index rows = 5000;
    Random random(3, 0);
    Matrix inputs(rows, 1);
    Vector truth(rows), y(rows);
    for (Eigen::Index r = 0; r < rows; ++r) {
        inputs(r, 0) = 4.0 * random.uniform() - 2.0;
        truth[r] = std::sin(2.0 * inputs(r, 0));
        y[r] = truth[r] + 0.1 * random.normal() + (random.uniform() < 0.2 ? 5.0 : 0.0);
    }
    const TargetScale scale(y);
    const Curve curve = robust_fit(network(), inputs, scale.apply(y), {.decay = 0.1}).curve;
    const Vector error = scale.undo(predictions(network(), curve, inputs)) - truth;
    EXPECT_LT(std::sqrt(error.array().square().mean()), 0.01);
}

TEST(RobustFit, ChoosesALargerDecayForAPlainerCurve)
{
    const Data wavy(21, 0.2, 8.0);
    Data straight(22, 0.0, 0.0);
    Random random(22, 5);
    for (Eigen::Index r = 0; r < ROWS; ++r)
        straight.y[r] = 0.5 * straight.inputs(r, 0) + random.normal();
    const auto decay = [](const Data& data) {
        return robust_fit(network(), data.inputs, TargetScale(data.y).apply(data.y), {}).decay;
    };
    EXPECT_LT(decay(wavy), decay(straight));
}

TEST(RobustFit, TakesOutliersOfAnySize)
{
    Data data(23, 0.0, 0.0);
    const Vector expected = fitted(data, data.y).predictions;
    for (const double size : {1e7, 1e15, 1e160, 1e300}) {
        Vector y = data.y;
        for (Eigen::Index r = 0; r < ROWS; r += 10) y[r] = r % 20 == 0 ? size : -size;
        const Vector found = fitted(data, y).predictions;
        EXPECT_LT(median((found - expected).cwiseAbs()), 0.2 * NOISE * data.deviation) << size;
    }
}

TEST(RobustFit, RefusesWhatIsNoData)
{
    const auto fit = [](Eigen::Index rows, double y, const FitSettings& settings) {
        robust_fit(network(), Matrix::Zero(rows, 1), Vector::Constant(rows, y), settings);
    };
    const double nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_THROW(fit(0, 0.0, {}), std::invalid_argument);
    EXPECT_THROW(fit(1, 0.0, {}), std::invalid_argument);
    EXPECT_THROW(fit(10, nan, {}), std::invalid_argument);
    EXPECT_THROW(fit(10, 0.0, {.starts = 0}), std::invalid_argument);
    EXPECT_THROW(fit(10, 0.0, {.decay = -1.0}), std::invalid_argument);
    EXPECT_THROW(fit(10, 0.0, {.decay = nan}), std::invalid_argument);
}

// Few rows, all targets alike, an exact line: no scatter, or none to speak of.
TEST(RobustFit, ComesToAnEndWhereThereIsNoScatter)
{
    for (const Eigen::Index rows : {2, 3, 5, 12, 60}) {
        Matrix inputs(rows, 1);
        for (Eigen::Index r = 0; r < rows; ++r) inputs(r, 0) = 0.1 * static_cast<double>(r);
        for (const Vector& y : {Vector(Vector::Zero(rows)), Vector(inputs.col(0))}) {
            const Curve curve = robust_fit(network(), inputs, y, {}).curve;
            EXPECT_TRUE(curve.w.allFinite());
            EXPECT_GT(curve.core, 0.0);
        }
    }
}

TEST(RobustFit, SeedsAgreeFarBelowTheNoise)
{
    const Data data(15, 0.2, 8.0);
    const Vector one = fitted(data, data.y).predictions;
    for (const std::uint64_t seed : {2u, 3u, 4u}) {
        const Vector other = fitted(data, data.y, {.decay = 0.1, .seed = seed}).predictions;
        EXPECT_LT(median((other - one).cwiseAbs()), 0.1 * NOISE * data.deviation) << seed;
    }
}

TEST(TargetScale, KnowsWhereMoreThanHalfIsOneValue)
{
    EXPECT_TRUE(TargetScale(Vector{{3.0, 3.0, 3.0, 1.0, 9.0}}).is_degenerate());
    EXPECT_FALSE(TargetScale(Vector{{3.0, 3.0, 2.0, 1.0, 9.0}}).is_degenerate());
}
