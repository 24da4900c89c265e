#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "fit/input_map.h"
#include "support/random.h"

using namespace vemknfit;

namespace {

constexpr double LARGEST = std::numeric_limits<double>::max();
constexpr double BOUND = InputMap::BEND + InputMap::ROOM;

Matrix column(const std::vector<double>& values)
{
    return Eigen::Map<const Matrix>(values.data(), static_cast<Eigen::Index>(values.size()), 1);
}

}  // namespace

TEST(InputMap, TakesTheMedianToZeroAndAQuartileDistanceToThatOfAGaussian)
{
    const Matrix x = column({10.0, 20.0, 30.0, 40.0, 50.0});
    const Matrix z = InputMap(x).apply(x);
    EXPECT_EQ(0.0, z(2, 0));
    EXPECT_NEAR(1.3489795, z(3, 0) - z(1, 0), 1e-7);
}

TEST(InputMap, OneGrossOutlierLeavesTheOthersWhereTheyWere)
{
    Random random(1);
    std::vector<double> values = random.list(300);
    const Matrix before = InputMap(column(values)).apply(column(values));
    values[7] = 999.0;
    const InputMap map(column(values));
    const Matrix after = map.apply(column(values));
    for (Eigen::Index r = 0; r < 300; ++r) {
        if (r == 7) continue;
        EXPECT_NEAR(before(r, 0), after(r, 0), 0.05);
    }
    EXPECT_LE(after(7, 0), BOUND);
    EXPECT_EQ(Rows{7}, map.far_out(column(values)));
}

TEST(InputMap, KeepsTheOrderAndStaysBounded)
{
    Random random(2);
    const Matrix x = column(random.list(50));
    const InputMap map(x);
    double last = -BOUND - 1.0;
    for (const double v :
         {-LARGEST, -1e300, -100.0, -5.0, -1.0, -1e-300, 0.0, 1.0, 5.0, 30.0, LARGEST}) {
        const double z = map.apply(column({v}))(0, 0);
        EXPECT_GE(z, last);
        EXPECT_LE(std::abs(z), BOUND);
        last = z;
    }
}

TEST(InputMap, NeitherOverflowsNorLosesAColumnByItsScale)
{
    Random random(3);
    const std::vector<double> u = random.list(101);
    const Matrix expected = InputMap(column(u)).apply(column(u));
    for (const double scale : {1e-300, 1e-150, 1.7e308}) {
        std::vector<double> scaled = u;
        for (double& v : scaled) v *= scale;
        const Matrix z = InputMap(column(scaled)).apply(column(scaled));
        EXPECT_LE((z - expected).cwiseAbs().maxCoeff(), 1e-7) << scale;
    }
}

TEST(InputMap, AColumnOfMostlyOneValueKeepsTheOthersApart)
{
    std::vector<double> values(100, 0.0);
    values[3] = values[50] = values[70] = 1.0;
    const Matrix z = InputMap(column(values)).apply(column(values));
    EXPECT_EQ(0.0, z(0, 0));
    EXPECT_GT(z(3, 0), 0.5);
    const Matrix same = column(std::vector<double>(5, 3.0));
    EXPECT_EQ(Matrix::Zero(5, 1), InputMap(same).apply(same));
}
