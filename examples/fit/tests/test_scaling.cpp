// The maps of inputs and targets, the default core scale, and the split into rows.
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

#include "../../common/random.h"
#include "problem.h"
#include "statistics.h"
#include "user_error.h"

namespace {

using fit::InputMap;
using fit::Matrix;
using fit::OutputRange;
using fit::TargetMap;
using fit::UserError;
using fit::Vector;

Matrix column(const Vector& values)
{
    return values;
}

/// y = 3 + 2 x with unit Gaussian scatter and every twentieth value 1000 too large.
struct Line {
    Line() : x(2000, 1), y(2000)
    {
        examples::Random random(5);
        for (Eigen::Index i = 0; i < y.size(); ++i) {
            x(i, 0) = random.normal();
            y[i] = 3.0 + 2.0 * x(i, 0) + random.normal() + (i % 20 == 0 ? 1000.0 : 0.0);
        }
    }

    Matrix x;
    Vector y;
};

TEST(Statistics, QuantilesInterpolate)
{
    const Vector values{{4.0, 1.0, 3.0, 2.0}};
    EXPECT_DOUBLE_EQ(fit::median(values), 2.5);
    EXPECT_DOUBLE_EQ(fit::quantile(values, 0.0), 1.0);
    EXPECT_DOUBLE_EQ(fit::quantile(values, 1.0), 4.0);
    EXPECT_TRUE(std::isnan(fit::median(Vector())));
}

TEST(InputMap, StandardisesAndTurns)
{
    const Matrix raw{{1.0, 0.0}, {3.0, 6.0}};
    const InputMap map(raw, {"a", "hour"}, {{"hour", 24.0}});
    EXPECT_EQ(map.names(), (std::vector<std::string>{"a", "sin(hour)", "cos(hour)"}));
    const Matrix mapped = map.apply(raw);
    EXPECT_DOUBLE_EQ(mapped(0, 0), -1.0);
    EXPECT_DOUBLE_EQ(mapped(1, 0), 1.0);
    EXPECT_DOUBLE_EQ(mapped(0, 2), 1.0);
    EXPECT_DOUBLE_EQ(mapped(1, 1), 1.0);
    EXPECT_NEAR(mapped(1, 2), 0.0, 1e-15);
}

TEST(InputMap, BoundsWhatARobustFitIsGiven)
{
    Matrix raw(9, 1);
    raw << 1.0, 2.0, 3.0, 4.0, 5.0, 6.0, 7.0, 8.0, 9e9;
    const InputMap map(raw, {"a"}, {}, fit::Scaling::bounded);
    const Matrix mapped = map.apply(raw);
    EXPECT_NEAR(mapped(4, 0), 0.0, 1e-15);
    EXPECT_GT(mapped(7, 0), 0.5);
    EXPECT_LT(mapped(8, 0), 10.0);
    EXPECT_EQ(map.rules()[0].name, "a");
    EXPECT_NE(map.describe()[0].find(", bent beyond 3"), std::string::npos);
}

TEST(InputMap, ConstantColumnsMapToZero)
{
    const Matrix raw{{0.1, 0.0}, {0.1, 1.0}, {0.1, 2.0}};
    const InputMap map(raw, {"a", "b"}, {});
    EXPECT_EQ(map.constant(), std::vector<std::string>{"a"});
    EXPECT_LT(map.apply(raw).col(0).cwiseAbs().maxCoeff(), 1e-12);
    EXPECT_THROW(InputMap(raw, {"a", "b"}, {{"c", 1.0}}), UserError);
}

TEST(TargetMap, GoesThereAndBack)
{
    const TargetMap map{{{.core = 2.0, .shift = -1.0}}};
    const Matrix y{{5.0}, {-1.0}};
    EXPECT_DOUBLE_EQ(map.apply(y)(0, 0), 1.0);
    EXPECT_DOUBLE_EQ(map.apply(y)(1, 0), 0.0);
    EXPECT_LT((map.undo(map.apply(y)) - y).cwiseAbs().maxCoeff(), 1e-14);
}

TEST(DefaultCore, SeesTheScatterThroughTrendAndOutliers)
{
    const Line line;
    EXPECT_NEAR(fit::default_core(line.x, line.y), 1.0, 0.1);
}

TEST(DefaultCore, OfExactDataIsAShareOfTheTargetsOwnSpread)
{
    const Line line;
    const Vector exact = 2.0 * line.x.col(0);
    EXPECT_NEAR(fit::default_core(line.x, exact), 0.01 * fit::mad_scale(exact), 1e-9);
    EXPECT_THROW(fit::default_core(line.x, Vector::Ones(line.x.rows())), UserError);
}

class MakeTargetMap : public testing::Test {
protected:
    TargetMap make(const fit::TargetOptions& options, OutputRange range)
    {
        return fit::make_target_map(
            Matrix::Random(y.size(), 1), column(y), {"y"}, options, range, notes);
    }

    std::vector<std::string> notes;
    const Vector y = Vector::LinSpaced(11, -10.0, 40.0);
};

TEST_F(MakeTargetMap, ShiftsByTheRangeOfTheActivation)
{
    const TargetMap positive = make({{2.0}, {}}, OutputRange::positive);
    EXPECT_DOUBLE_EQ(positive.apply(column(y)).minCoeff(), 1.0);
    const TargetMap free = make({{2.0}, {}}, OutputRange::unbounded);
    EXPECT_DOUBLE_EQ(free.scales[0].shift, 15.0);
    EXPECT_TRUE(notes.empty());
    make({{2.0}, 0.0}, OutputRange::positive);
    EXPECT_EQ(notes.size(), 1U) << "values below the shift are worth a note";
}

TEST_F(MakeTargetMap, FitsIntoTheRangeOfAtanOrRefuses)
{
    EXPECT_THROW(make({{2.0}, {}}, OutputRange::half_pi), UserError);
    const TargetMap roomy = make({{20.0}, {}}, OutputRange::half_pi);
    EXPECT_DOUBLE_EQ(roomy.scales[0].core, 20.0);
    const TargetMap enlarged = make({}, OutputRange::half_pi);
    EXPECT_LT(enlarged.apply(column(y)).cwiseAbs().maxCoeff(), std::numbers::pi / 2);
}

TEST_F(MakeTargetMap, WantsOneCoreOrOneForEach)
{
    EXPECT_THROW(make({{1.0, 2.0}, {}}, OutputRange::positive), UserError);
}

TEST(Problem, HoldsOutTheShareAndRepeatsIt)
{
    fit::Columns columns{.input_names = {"x"},
                         .target_names = {"y"},
                         .inputs = Vector::LinSpaced(100, 0.0, 1.0),
                         .targets = Vector::LinSpaced(100, 0.0, 9.0),
                         .lines = std::vector<std::size_t>(100, 1),
                         .dropped = 0};
    std::vector<std::string> notes;
    const auto make = [&](std::uint64_t seed) {
        fit::Shape shape{.inputs = 0, .outputs = 0, .hidden = {2}, .activation = "softplus"};
        return fit::make_problem(
            columns,
            {.periodic = {}, .targets = {}, .held_out_share = 0.25, .seed = seed},
            shape,
            notes);
    };
    const fit::Problem problem = make(3);
    EXPECT_EQ(problem.held_out.size(), 25U);
    EXPECT_EQ(problem.train.x.rows(), 75);
    EXPECT_NEAR(problem.train.x.mean(), 0.0, 1e-12);
    EXPECT_EQ(problem.held_out, make(3).held_out);
    EXPECT_NE(problem.held_out, make(4).held_out);
}

}  // namespace
