#include <gtest/gtest.h>

#include <cmath>

#include "fit/input_map.h"
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

Fitted fitted(const Data& data, const Vector& y, const FitSettings& settings = {})
{
    const TargetScale scale(y);
    const Curve curve = RobustFit(network(), data.inputs, scale.apply(y), settings).run();
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

TEST(RobustFit, EndsAtAStationaryPointWithEveryRowOnItsSide)
{
    const Data data(12, 0.2, 8.0);
    RobustFit fit(network(), data.inputs, TargetScale(data.y).apply(data.y), {});
    const Curve curve = fit.run();
    const Batch batch{data.inputs, fit.targets(curve)};
    const Vector penalty = fit.penalty(curve.core);
    const auto sides = sides_of(network(), batch, curve.w);
    const ObjectiveOfSides objective(network(), batch, penalty, sides);
    Vector gradient;
    const double value = objective.value(curve.w, gradient);
    const double size = network().jacobian(curve.w, data.inputs).norm();
    EXPECT_LT(gradient.norm(), 1e-4 * size * std::sqrt(value));
    EXPECT_EQ(sides, sides_of(network(), batch, minimise(objective, curve.w, {50, 1e-13})));
}

TEST(RobustFit, GivesTheSameBitsForTheSameSeed)
{
    const Data data(13, 0.1, 8.0);
    const Vector one = fitted(data, data.y).predictions;
    EXPECT_EQ(one, fitted(data, data.y).predictions);
    EXPECT_NE(one, fitted(data, data.y, {.seed = 2}).predictions);
}

// To the bit where the scale is a power of two, whatever it is.
TEST(RobustFit, FollowsTheScaleOfTheTargets)
{
    const Data data(14, 0.2, 8.0);
    const Vector expected = fitted(data, data.y).predictions;
    for (const double scale : {0x1p-600, 0x1p40, 0x1p1000}) {
        EXPECT_EQ(expected, fitted(data, scale * data.y).predictions / scale) << scale;
    }
    // Else other roundings lead another way, to nearly the same curve.
    const Vector moved = fitted(data, (1000.0 * data.y).array() + 5e4).predictions;
    const Vector back = (moved.array() - 5e4) / 1000.0;
    EXPECT_LT((back - expected).cwiseAbs().maxCoeff(), 0.05 * NOISE * data.deviation);
}

TEST(RobustFit, SeedsAgreeFarBelowTheNoise)
{
    const Data data(15, 0.2, 8.0);
    const Vector one = fitted(data, data.y).predictions;
    for (const std::uint64_t seed : {2u, 3u, 4u}) {
        const Vector other = fitted(data, data.y, {.seed = seed}).predictions;
        EXPECT_LT(median((other - one).cwiseAbs()), 0.1 * NOISE * data.deviation) << seed;
    }
}

TEST(TargetScale, KnowsWhereMoreThanHalfIsOneValue)
{
    EXPECT_TRUE(TargetScale(Vector{{3.0, 3.0, 3.0, 1.0, 9.0}}).is_degenerate());
    EXPECT_FALSE(TargetScale(Vector{{3.0, 3.0, 2.0, 1.0, 9.0}}).is_degenerate());
}
