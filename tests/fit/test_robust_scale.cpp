#include <gtest/gtest.h>

#include <cmath>

#include "fit/robust_scale.h"

using namespace vemknfit;

namespace {

// As many quantiles of a standard normal, found by bisection of erfc.
Vector gaussian(Eigen::Index n)
{
    Vector values(n);
    for (Eigen::Index i = 0; i < n; ++i) {
        const double wanted = (static_cast<double>(i) + 0.5) / static_cast<double>(n);
        double low = -10.0, high = 10.0;
        for (int step = 0; step < 60; ++step) {
            const double middle = 0.5 * (low + high);
            (0.5 * std::erfc(-middle / std::sqrt(2.0)) < wanted ? low : high) = middle;
        }
        values[i] = low;
    }
    return values;
}

// The first of them far out.
Vector spoiled(Vector values, double share, double size)
{
    const auto n = static_cast<Eigen::Index>(share * static_cast<double>(values.size()));
    for (Eigen::Index i = 0; i < n; ++i)
        values[i * values.size() / std::max<Eigen::Index>(n, 1)] = size;
    return values;
}

}  // namespace

TEST(RobustScale, QuantilesLieBetweenTheTwoNearestValues)
{
    const Vector values{{5.0, 1.0, 3.0, 2.0}};
    EXPECT_EQ(1.0, quantile(values, 0.0));
    EXPECT_EQ(5.0, quantile(values, 1.0));
    EXPECT_EQ(2.5, median(values));
    EXPECT_DOUBLE_EQ(1.75, quantile(values, 0.25));
    EXPECT_EQ(7.0, median(Vector{{7.0}}));
}

TEST(RobustScale, QuantilesOfTheLargestNumbersAreFinite)
{
    const Vector values{{-1.7e308, 1.7e308}};
    EXPECT_EQ(0.0, median(values));
}

TEST(RobustScale, AllAreTheStandardDeviationOfAGaussian)
{
    const Vector values = 3.0 * gaussian(20001);
    EXPECT_NEAR(3.0, mad(values), 3e-3);
    EXPECT_NEAR(3.0, m_scale(values), 3e-3);
    EXPECT_NEAR(3.0, inner_deviation(values, 4.0, 0.0), 3e-3);
}

TEST(RobustScale, MScaleSolvesItsEquation)
{
    const Vector values = spoiled(gaussian(501), 0.2, 40.0);
    const double scale = m_scale(values);
    double sum = 0.0;
    for (const double r : values) {
        const double u = std::min(std::abs(r) / (1.547645 * scale), 1.0);
        sum += 1.0 - std::pow(1.0 - u * u, 3.0);
    }
    EXPECT_NEAR(0.5, sum / 501.0, 1e-8);
}

TEST(RobustScale, LessThanHalfOfTheRowsLeaveMScaleBounded)
{
    const double near = m_scale(spoiled(gaussian(1001), 0.45, 1e3));
    EXPECT_LT(near, 10.0);
    EXPECT_NEAR(near, m_scale(spoiled(gaussian(1001), 0.45, 1e15)), 1e-6);
}

TEST(RobustScale, MScaleOfMostlyZerosIsZero)
{
    EXPECT_EQ(0.0, m_scale(spoiled(Vector::Zero(10), 0.4, 1.0)));
}

TEST(RobustScale, InnerDeviationTakesNoNoticeOfWhatIsFarOut)
{
    EXPECT_NEAR(1.0, inner_deviation(spoiled(gaussian(5001), 0.2, 100.0), 1.7, 0.0), 0.01);
}

TEST(RobustScale, InnerDeviationMakesUpForWhatWasFitted)
{
    const Vector values = gaussian(1000);
    const double of_none = inner_deviation(values, 1.0, 0.0);
    // All rows within three scales stay there: 997 of them, as a rule.
    EXPECT_NEAR(of_none * std::sqrt(997.0 / 897.0), inner_deviation(values, 1.0, 100.0), 0.01);
}
