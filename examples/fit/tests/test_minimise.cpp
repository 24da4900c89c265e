// The guard, the objectives and the minimisers, on a network small enough to check by differences.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>

#include "../../common/random.h"
#include "fit.h"
#include "start.h"
#include "statistics.h"

namespace {

using fit::Batch;
using fit::Guard;
using fit::Method;
using fit::Network;
using fit::Shape;
using fit::Vector;

const Shape shape{.inputs = 1, .outputs = 1, .hidden = {3}, .activation = "softplus"};

Batch bump()
{
    examples::Random random(2);
    Batch batch{fit::Matrix(150, 1), fit::Matrix(150, 1)};
    for (Eigen::Index i = 0; i < 150; ++i) {
        batch.x(i, 0) = 4.0 * random.uniform() - 2.0;
        batch.y(i, 0) = 3.0 + std::exp(-batch.x(i, 0) * batch.x(i, 0)) + 0.1 * random.normal();
    }
    return batch;
}

class Minimise : public testing::TestWithParam<Method> {
protected:
    Batch batch = bump();
    Guard guard{shape, batch.x.cwiseAbs().colwise().maxCoeff().transpose()};
    Network network{shape, GetParam() == Method::gauss_newton ? "sum" : "sum_log_dnorm_fat", {}};
    std::unique_ptr<fit::Objective> objective =
        fit::make_objective(GetParam(), network, batch, guard);
    fit::Progress silent{fit::Progress::Style::silent};

    Vector start(std::uint64_t seed)
    {
        examples::Random random(seed);
        return fit::starting_weights(network, batch, random);
    }

    std::string run(const fit::StopRule& stop, fit::Monitor& monitor)
    {
        if (GetParam() == Method::lbfgs)
            return fit::minimise_lbfgs(*objective, start(1), stop, monitor);
        if (GetParam() == Method::newton)
            return fit::minimise_newton(
                dynamic_cast<fit::NormObjective&>(*objective), start(1), stop, monitor);
        return fit::minimise_gauss_newton(
            dynamic_cast<fit::SquaresObjective&>(*objective), start(1), stop, monitor);
    }
};

TEST_P(Minimise, StartsWithTheMedianInPlace)
{
    const fit::Matrix outputs = network.outputs(start(7), batch.x);
    EXPECT_NEAR(fit::median(outputs.col(0)), fit::median(batch.y.col(0)), 1e-9);
}

TEST_P(Minimise, GradientIsTheSlopeOfTheValue)
{
    const Vector w = start(3);
    Vector gradient;
    EXPECT_NEAR(objective->gradient(w, gradient), objective->value(w), 1e-12);
    for (Eigen::Index i = 0; i < w.size(); ++i) {
        const Vector step = 1e-5 * Vector::Unit(w.size(), i);
        const double slope = (objective->value(w + step) - objective->value(w - step)) / 2e-5;
        EXPECT_NEAR(gradient[i], slope, 1e-6 * (1.0 + std::abs(slope))) << i;
    }
}

TEST_P(Minimise, GoesDownToTheScatter)
{
    fit::Monitor monitor({}, 50, silent);
    run({}, monitor);
    // The scatter alone, 0.1 against the core's 1/3, costs 0.045.
    EXPECT_LT(monitor.best_objective(), 0.055);
    EXPECT_DOUBLE_EQ(monitor.best_validation(), monitor.best_objective());
}

TEST_P(Minimise, KeepsToTheEvaluationLimit)
{
    fit::Monitor monitor({}, 50, silent);
    EXPECT_EQ(run({.max_evaluations = 6, .tolerance = 1e-7}, monitor), "evaluation limit");
    EXPECT_LE(objective->counts.total(), 9U);  // a step of Gauss-Newton takes three calls
}

TEST_P(Minimise, EndsWhereNothingIsLeftToGain)
{
    const Vector w = start(1);
    batch.y = network.outputs(w, batch.x);  // the objective is 0 from the beginning
    objective = fit::make_objective(GetParam(), network, batch, guard);
    fit::Monitor monitor({}, 50, silent);
    EXPECT_NE(run({.max_evaluations = 100, .tolerance = 1e-7}, monitor), "evaluation limit");
    EXPECT_LT(objective->counts.total(), 50U);
}

TEST_P(Minimise, StopsWhenTheHeldOutErrorRises)
{
    double held_out = 0.0;
    const auto rising = [&](const Vector&) { return held_out += 1.0; };
    fit::Monitor monitor(rising, 2, silent);
    EXPECT_EQ(run({}, monitor), "held-out error no longer falls");
    EXPECT_DOUBLE_EQ(held_out, 4.0);
    EXPECT_EQ(monitor.best(), start(1)) << "the first point did best on the held-out rows";
}

std::string name_of(const testing::TestParamInfo<Method>& method)
{
    const char* const names[] = {"lbfgs", "newton", "gauss_newton"};
    return names[static_cast<int>(method.param)];
}

INSTANTIATE_TEST_SUITE_P(Methods,
                         Minimise,
                         testing::Values(Method::lbfgs, Method::newton, Method::gauss_newton),
                         name_of);

TEST(GuardTest, BoundsEveryPreactivation)
{
    const Guard guard(shape, Vector::Constant(1, 2.0));
    Vector w = Vector::Zero(10);
    w[3] = -5.0;  // first layer: 2 * 5
    w[6] = 1.0;   // output bias
    w[7] = 3.0;   // times at most 10 + 1
    EXPECT_DOUBLE_EQ(guard.load(w) * Guard::limit, 1.0 + 3.0 * 11.0);
    w[7] = 1e9;
    EXPECT_FALSE(guard.safe(w));
    w[7] = std::numeric_limits<double>::quiet_NaN();
    EXPECT_FALSE(guard.safe(w));
    w[7] = std::numeric_limits<double>::infinity();
    EXPECT_FALSE(guard.safe(w));
}

TEST(GuardTest, TheLibraryStandsWhatTheGuardLetsThrough)
{
    for (const char* activation : {"softplus", "atan", "relu", "id"}) {
        Shape other = shape;
        other.activation = activation;
        const Network network(other, "sum_log_dnorm_fat", {});
        const Batch batch{fit::Matrix::Constant(1, 1, 1.0), fit::Matrix::Constant(1, 1, -1.0)};
        const Guard guard(other, Vector::Ones(1));
        for (const double sign : {1.0, -1.0}) {
            Vector w = Vector::Constant(10, sign * 400.0);
            ASSERT_TRUE(guard.safe(w));
            fit::NormObjective objective(network, batch, guard);
            Vector gradient;
            Eigen::MatrixXd hessian;
            EXPECT_TRUE(std::isfinite(objective.curvature(w, gradient, hessian))) << activation;
            EXPECT_TRUE(gradient.allFinite() && hessian.allFinite()) << activation;
        }
    }
}

}  // namespace
