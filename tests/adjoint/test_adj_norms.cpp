#include <gtest/gtest.h>

#include "fad/ad.h"
#include "support/fp_state.h"
#include "support/numbers.h"
#include "support/plain_network.h"

using namespace VEMKN;
using Matrix = MatrixTemplate<double>;
using Vector = std::valarray<double>;

namespace {

Vector vector_of(const Numbers& x)
{
    return Vector(x.data(), x.size());
}

constexpr double JUST_BELOW_2 = 1.9999999999999998;
constexpr double SIGMA = 0.3333333333333333;
constexpr double GAMMA = 0.0004785973257525766;

// Derivative of -log f, by a complex step through the plain function.
long double slope(double x)
{
    return plain::element_norm("sum_log_dnorm_fat", plain::Complex(x, plain::STEP)).imag() /
           plain::STEP;
}

plain::Complex core_density(plain::Complex x)
{
    return plain::Complex(3 / std::sqrt(2 * std::acos(-1.0L))) *
           std::exp(plain::Complex(-4.5L) * x * x);
}

plain::Complex tail_density(plain::Complex x)
{
    const plain::Complex gamma(GAMMA);
    return gamma / (plain::Complex(std::acos(-1.0L)) * (x * x + gamma * gamma));
}

long double density_slope(double x)
{
    const plain::Complex z(x, plain::STEP);
    return (std::fabs(x) < 2 ? core_density(z) : tail_density(z)).imag() / plain::STEP;
}

Numbers both_sides()
{
    Random random(40);
    Numbers x = random.list(1000, -2.5, 2.5);
    for (const double extra : {JUST_BELOW_2,
                               -JUST_BELOW_2,
                               2.0,
                               -2.0,
                               2.0000000000000004,
                               3.0,
                               -50.0,
                               1e6,
                               -1e20,
                               1e-5}) {
        x.push_back(extra);
    }
    return x;
}

// Products and quotients only, a dozen; the density cancels but for its rounding, which the exponent (up to 18) brings
// in twice the same way.
constexpr double ULPS = 32;

}  // namespace

TEST(AdjNormfun, CopiesItsSeedWhateverTheResiduals)
{
    const Numbers r = {1, QUIET_NAN, 3, 4}, seed = {5, -0.0, INF, 8};
    Matrix Rbar(2, 2);
    Rbar.store() = QUIET_NAN;
    for (int call = 0; call < 2; ++call) {
        adj_normfun(Matrix(r.data(), 2, 2), vector_of(seed), Rbar);
        EXPECT_EQ(bits_of(seed), bits_of(Rbar.store()));
        EXPECT_EQ(2u, Rbar.rows());
        EXPECT_EQ(2u, Rbar.cols());
    }
}

TEST(AdjNormfunSum, FillsTheMatrixWhateverTheResiduals)
{
    const Numbers r = {1, QUIET_NAN, 3, 4, 5, 6};
    Matrix Rbar(3, 2);
    Rbar.store() = QUIET_NAN;
    for (int call = 0; call < 2; ++call) {
        adj_normfun_sum(Matrix(r.data(), 3, 2), 0.25, Rbar);
        EXPECT_EQ(bits_of(Numbers(6, 0.25)), bits_of(Rbar.store()));
        EXPECT_EQ(3u, Rbar.rows());
        EXPECT_EQ(2u, Rbar.cols());
    }
}

TEST(AdjLogDnormVec, IsTheSeedTimesTheDerivative)
{
    const Numbers x = both_sides();
    Random random(41);
    const Numbers seed = random.list(x.size(), -3, 3);
    Vector xbar(QUIET_NAN, 3);
    {
        const TrapsArmed traps;
        adj_log_dnorm_vec(vector_of(x), vector_of(seed), xbar);
    }
    ASSERT_EQ(x.size(), xbar.size());
    for (std::size_t i = 0; i < x.size(); ++i) {
        EXPECT_LE(ulps(xbar[i], slope(x[i]) * static_cast<long double>(seed[i])), ULPS) << x[i];
    }
}

TEST(AdjLogDnormVec, JumpsAtTwo)
{
    Vector xbar;
    adj_log_dnorm_vec(Vector{JUST_BELOW_2, 2.0, -JUST_BELOW_2, -2.0}, Vector(1.0, 4), xbar);
    // 9 x inside; 2 x/(x^2 + gamma^2) from 2 on.
    EXPECT_NEAR(18.0, xbar[0], 64 * EPS * 18);
    EXPECT_NEAR(1.0, xbar[1], 1e-6);
    EXPECT_NEAR(-18.0, xbar[2], 64 * EPS * 18);
    EXPECT_NEAR(-1.0, xbar[3], 1e-6);
}

TEST(AdjLogDnormVec, OverwritesItsResult)
{
    const Vector x = vector_of(both_sides());
    Vector first, again(QUIET_NAN, x.size());
    adj_log_dnorm_vec(x, x, first);
    for (int call = 0; call < 2; ++call) {
        adj_log_dnorm_vec(x, x, again);
        EXPECT_EQ(bits_of(first), bits_of(again));
    }
}

TEST(AdjLogDnormVec, PassesQuietNansAtEveryPositionWithTrapsArmed)
{
    const TrapsArmed traps;
    for (std::size_t size = 1; size <= 19; ++size) {
        for (std::size_t i = 0; i < size; ++i) {
            Vector x(0.5, size), ybar(2.0, size), of_x, of_ybar;
            Vector nan_x = x, nan_ybar = ybar;
            nan_x[i] = nan_ybar[i] = QUIET_NAN;
            adj_log_dnorm_vec(nan_x, ybar, of_x);
            adj_log_dnorm_vec(x, nan_ybar, of_ybar);
            for (std::size_t j = 0; j < size; ++j) {
                EXPECT_EQ(i == j, std::isnan(of_x[j])) << size;
                EXPECT_EQ(i == j, std::isnan(of_ybar[j])) << size;
            }
        }
    }
}

TEST(AdjLogDnormVec, OfNothingIsNothing)
{
    Vector xbar(1.0, 3);
    adj_log_dnorm_vec(Vector(), Vector(), xbar);
    EXPECT_EQ(0u, xbar.size());
}

TEST(AdjLogDnorm, KeepsTheShapeOfTheResiduals)
{
    const Numbers r = {0, 1, 2, 3, -1, 0.5}, seed = {1, 2, 3, 4, 5, 6};
    Matrix Rbar(2, 3);
    Vector of_store;
    for (int call = 0; call < 2; ++call) {
        adj_log_dnorm(Matrix(r.data(), 2, 3), vector_of(seed), Rbar);
        EXPECT_EQ(2u, Rbar.rows());
        EXPECT_EQ(3u, Rbar.cols());
        adj_log_dnorm_vec(vector_of(r), vector_of(seed), of_store);
        EXPECT_EQ(bits_of(of_store), bits_of(Rbar.store()));
    }
}

TEST(AdjSumLogDnorm, IsNineTimesTheResidualInside)
{
    const Numbers r = {1, 0, -0.5};
    Matrix Rbar(3, 1);
    Rbar.store() = QUIET_NAN;
    for (int call = 0; call < 2; ++call) {
        adj_sum_log_dnorm(Matrix(r.data(), 3, 1), 1.0, Rbar);
        EXPECT_LE(ulps(Rbar(0, 0), 9), ULPS);
        EXPECT_EQ(0.0, Rbar(1, 0));
        EXPECT_LE(ulps(Rbar(2, 0), -4.5), ULPS);
    }
}

TEST(AdjSumLogDnorm, SpreadsItsSeed)
{
    const Numbers x = both_sides();
    Matrix Rbar(x.size(), 1);
    adj_sum_log_dnorm(Matrix(x.data(), x.size(), 1), -0.375, Rbar);
    for (std::size_t i = 0; i < x.size(); ++i) {
        EXPECT_LE(ulps(Rbar(i, 0), slope(x[i]) * -0.375L), ULPS) << x[i];
    }
}

TEST(FatDnormAdjoint, IsTheWeightTimesTheDerivativeOfTheDensity)
{
    const Numbers x = both_sides();
    Random random(42);
    const Numbers w = random.list(x.size(), -3, 3);
    Vector xbar(QUIET_NAN, x.size());
    for (int call = 0; call < 2; ++call) {
        fat_dnorm_adjoint(vector_of(x), vector_of(w), xbar, SIGMA);
        for (std::size_t i = 0; i < x.size(); ++i) {
            // Here the rounding of the core's exponent, up to 18, shows in the density.
            EXPECT_LE(ulps(xbar[i], density_slope(x[i]) * static_cast<long double>(w[i])), 128)
                << x[i];
        }
    }
}

TEST(AdjDcauchy, IsTheWeightTimesTheDerivativeOfTheCauchyDensity)
{
    const Numbers x = {0.0, 1e-4, GAMMA, 0.1, -0.5, 2, -7, 1e5};
    const Numbers w = {1, 2, -3, 4, 5, -6, 7, 8};
    Vector xbar(QUIET_NAN, 1);
    for (int call = 0; call < 2; ++call) {
        adj_dcauchy(vector_of(x), GAMMA, vector_of(w), xbar);
        ASSERT_EQ(x.size(), xbar.size());
        for (std::size_t i = 0; i < x.size(); ++i) {
            const long double truth =
                tail_density(plain::Complex(x[i], plain::STEP)).imag() / plain::STEP;
            // A dozen operations.
            EXPECT_LE(ulps(xbar[i], truth * static_cast<long double>(w[i])), 16) << x[i];
        }
    }
}
