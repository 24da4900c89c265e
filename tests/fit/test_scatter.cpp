// How residuals are found to deviate from scatter that is alike everywhere.
#include <gtest/gtest.h>

#include <cmath>

#include "fit/random.h"
#include "fit/scatter.h"

using namespace vemknfit;

namespace {

Vector numbers(std::initializer_list<double> values)
{
    Vector result(static_cast<Eigen::Index>(values.size()));
    std::copy(values.begin(), values.end(), result.begin());
    return result;
}

Vector gaussian(Random& random, Eigen::Index n)
{
    Vector values(n);
    for (double& value : values) value = random.normal();
    return values;
}

}  // namespace

TEST(QuantileSkewness, ComparesTheTenthsWithTheMedian)
{
    // Quantiles of eleven numbers are the second, the sixth and the tenth.
    EXPECT_DOUBLE_EQ(0.5, quantile_skewness(numbers({9, 0, 2, 3, 4, 5, 5, 5, 5, 14, 99})));
    EXPECT_DOUBLE_EQ(-0.5,
                     quantile_skewness(numbers({-9, 0, -2, -3, -4, -5, -5, -5, -5, -14, -99})));
    EXPECT_NEAR(0.0, quantile_skewness(numbers({1, 2, 3})), 1e-15);
    EXPECT_EQ(0.0, quantile_skewness(numbers({4, 4, 4, 4})));
}

TEST(QuantileSkewness, HasTheStatedDeviationOfGaussianNumbers)
{
    Random random(1, 0);
    const int draws = 4000, n = 400;
    double squares = 0.0;
    for (int i = 0; i < draws; ++i) squares += std::pow(quantile_skewness(gaussian(random, n)), 2);
    EXPECT_NEAR(GAUSSIAN_SKEWNESS_DEVIATION, std::sqrt(n * squares / draws), 0.05);
}

TEST(RankCorrelation, KnowsTheOrderOnly)
{
    EXPECT_DOUBLE_EQ(1.0, rank_correlation(numbers({1, 2, 3, 4}), numbers({-1, 0, 1e300, 2e300})));
    EXPECT_DOUBLE_EQ(-1.0, rank_correlation(numbers({1, 2, 3, 4}), numbers({4, 2, 1, -7})));
    // As scipy.stats.spearmanr has it.
    EXPECT_NEAR(0.8060599359358183,
                rank_correlation(numbers({3, 1, 2, 2, 5, -4}), numbers({0.5, 0.25, 8, 8, 9, 0.25})),
                1e-15);
    EXPECT_EQ(0.0, rank_correlation(numbers({1, 2, 3}), numbers({5, 5, 5})));
}
