#include <gtest/gtest.h>

#include <cmath>
#include <vemkn.hpp>

#include "fit/loss.h"

using namespace vemknfit;

TEST(Loss, IsWhatTheLibraryGivesAResidual)
{
    const vemkn::Network net({.numin = 1, .numout = 1, .sizes = {1, 1}});
    for (const double r : {0.0, 1e-9, -0.3, 1.0, 1.999, -2.0, 2.5, 100.0, -1e9}) {
        double expected = 0.0;
        ASSERT_EQ(0, vemk_logp(net.handle(), &r, 1, &expected));
        EXPECT_NEAR(expected, loss(r, side_of(r)), 1e-13 * (1.0 + expected)) << r;
    }
}

TEST(Loss, JumpsAtTwo)
{
    EXPECT_EQ(Side::core, side_of(std::nextafter(2.0, 0.0)));
    EXPECT_EQ(Side::tail, side_of(2.0));
    EXPECT_EQ(Side::tail, side_of(-2.0));
    EXPECT_NEAR(18.0, loss(2.0, Side::core), 1e-12);
    EXPECT_NEAR(10.36, loss(2.0, Side::tail), 0.01);
}

TEST(Loss, SlopesAreThoseOfDifferences)
{
    constexpr double H = 1e-4;
    for (const Side side : {Side::core, Side::tail}) {
        for (const double r : {-30.0, -2.1, -1.9, -0.7, 0.0, 0.4, 1.9, 2.1, 500.0}) {
            const auto at = [&](double x) { return loss(x, side); };
            const double slope =
                (8.0 * (at(r + H) - at(r - H)) - (at(r + 2 * H) - at(r - 2 * H))) / (12.0 * H);
            EXPECT_NEAR(slope, loss_slope(r, side), 1e-8 * (1.0 + std::abs(slope))) << r;
        }
    }
}

// So that a minimiser that keeps sides meets no edge there.
TEST(Loss, TailGoesOnSmoothlyBelowTwo)
{
    const double below = std::nextafter(2.0, 0.0);
    EXPECT_NEAR(loss(2.0, Side::tail), loss(below, Side::tail), 1e-12);
    EXPECT_NEAR(loss_slope(2.0, Side::tail), loss_slope(below, Side::tail), 1e-12);
}
