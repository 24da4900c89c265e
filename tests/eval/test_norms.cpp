#include <gtest/gtest.h>

#include <algorithm>

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

Matrix column(const Numbers& x)
{
    return Matrix(x.data(), x.size(), 1);
}

double log_dnorm_at(double x)
{
    const TrapsArmed traps;
    return log_dnorm_vec(Vector{x})[0];
}

constexpr double JUST_BELOW_2 = 1.9999999999999998;
constexpr double SIGMA = 0.3333333333333333;
constexpr double GAMMA = 0.0004785973257525766;
constexpr long double PI = 3.14159265358979323846264338327950288L;

long double core_density(double x)
{
    return 3 / std::sqrt(2 * PI) * std::exp(-4.5L * x * x);
}

long double tail_density(double x)
{
    return GAMMA /
           (PI * (static_cast<long double>(x) * x + static_cast<long double>(GAMMA) * GAMMA));
}

// -log f + bias: a relative error of the density (its exponent, up to 18, is rounded a few times; exp and log are good
// to four units in the last place in vector code) becomes an absolute error of the logarithm.
double likelihood_tolerance(double y)
{
    return EPS * (16 + 16 * std::fabs(y));
}

// Numbers whose sum depends on the order of summation.
Numbers touchy(std::uint64_t seed, std::size_t n)
{
    Random random(seed);
    Numbers x = random.list(n);
    for (double& value : x) value = std::ldexp(value, static_cast<int>(random.below(40)));
    return x;
}

double left_to_right(const Numbers& x)
{
    double s = x[0];
    for (std::size_t i = 1; i < x.size(); ++i) s += x[i];
    return s;
}

Numbers reversed(Numbers x)
{
    std::reverse(x.begin(), x.end());
    return x;
}

}  // namespace

TEST(Normfun, ReturnsItsArgumentToTheBit)
{
    const Numbers r = {1, -0.0, QUIET_NAN, INF, -2.5, 4.9e-324};
    EXPECT_EQ(bits_of(r), bits_of(normfun(Matrix(r.data(), 2, 3))));
    EXPECT_EQ(0u, normfun(Matrix(0, 3)).size());
}

TEST(NormfunSum, NeitherSquaresNorTakesAbsoluteValues)
{
    EXPECT_EQ(0.0, normfun_sum(column({1, -1})));
    EXPECT_EQ(-5.0, normfun_sum(column({1, -2, -4})));
}

TEST(NormfunSum, SumsFromLeftToRight)
{
    EXPECT_EQ(1.0, normfun_sum(column({1e16, -1e16, 1})));
    EXPECT_EQ(0.0, normfun_sum(column({1, 1e16, -1e16})));
    int order_shows = 0;
    for (std::size_t n = 2; n <= 130; ++n) {
        const Numbers x = touchy(n, n);
        EXPECT_EQ(bits(left_to_right(x)), bits(normfun_sum(column(x)))) << n;
        if (left_to_right(x) != left_to_right(reversed(x))) ++order_shows;
    }
    EXPECT_GT(order_shows, 20);
}

TEST(NormfunSum, StartsFromTheFirstElement)
{
    // 0.0 + -0.0 would be 0.0.
    EXPECT_TRUE(is_negative_zero(normfun_sum(column({-0.0}))));
}

TEST(NormfunSum, OfNothingIsZero)
{
    EXPECT_EQ(bits(0.0), bits(normfun_sum(Matrix(0, 3))));
}

TEST(NormfunSum, PassesAQuietNanWithTrapsArmed)
{
    const TrapsArmed traps;
    EXPECT_TRUE(std::isnan(normfun_sum(column({1, QUIET_NAN, 2}))));
}

TEST(FatDnorm, IsAGaussianInside)
{
    Random random(6);
    Numbers x = random.list(500, -2, 2);
    for (const double extra : {0.0, -0.0, 1e-300, JUST_BELOW_2, -JUST_BELOW_2}) x.push_back(extra);
    const Vector f = fat_dnorm(vector_of(x), SIGMA);
    for (std::size_t i = 0; i < x.size(); ++i) {
        // The exponent, up to 18, is rounded a few times.
        EXPECT_NEAR(1.0, static_cast<double>(f[i] / core_density(x[i])), 128 * EPS) << x[i];
    }
}

TEST(FatDnorm, IsACauchyDensityFromSixSigmaOn)
{
    Random random(7);
    Numbers x = random.list(500, 2, 50);
    for (const double extra : {2.0, -2.0, -3.0, 1e5, 1e100, -1e150}) x.push_back(extra);
    const Vector f = fat_dnorm(vector_of(x), SIGMA);
    for (std::size_t i = 0; i < x.size(); ++i) {
        // Five operations.
        EXPECT_NEAR(1.0, static_cast<double>(f[i] / tail_density(x[i])), 8 * EPS) << x[i];
    }
}

TEST(FatDnorm, JumpsAtSixSigma)
{
    const Vector f = fat_dnorm({JUST_BELOW_2, 2.0, -JUST_BELOW_2, -2.0}, SIGMA);
    EXPECT_NEAR(1.8e-8, f[0], 1e-9);
    EXPECT_NEAR(3.8e-5, f[1], 1e-6);
    EXPECT_EQ(f[0], f[2]);
    EXPECT_EQ(f[1], f[3]);
}

TEST(FatDnorm, PutsTheJumpAtSixTimesItsSigma)
{
    const Vector f = fat_dnorm({2.9, 3.0}, 0.5);
    const double core = std::exp(-2.9 * 2.9 * 2) / std::sqrt(static_cast<double>(PI) / 2);
    EXPECT_NEAR(core, f[0], 1e-15);
    EXPECT_NEAR(static_cast<double>(tail_density(3.0)), f[1], 1e-15);
}

TEST(FatDnorm, PutsNanAndInfinityInTheTailWithTrapsArmed)
{
    const TrapsArmed traps;
    for (std::size_t size = 1; size <= 19; ++size) {
        for (std::size_t i = 0; i < size; ++i) {
            Vector x(0.5, size);
            x[i] = QUIET_NAN;
            const Vector f = fat_dnorm(x, SIGMA);
            x[i] = INF;
            EXPECT_EQ(0.0, fat_dnorm(x, SIGMA)[i]);
            for (std::size_t j = 0; j < size; ++j) EXPECT_EQ(i == j, std::isnan(f[j]));
        }
    }
}

TEST(FatDnorm, OfNothingIsNothing)
{
    EXPECT_EQ(0u, fat_dnorm(Vector(), SIGMA).size());
}

TEST(LogDnorm, IsExactlyZeroAtZero)
{
    EXPECT_EQ(0.0, log_dnorm_at(0.0));
    EXPECT_EQ(0.0, log_dnorm_at(-0.0));
    // Also in the middle of a vector.
    for (const double y : log_dnorm_vec(Vector(0.0, 37))) EXPECT_EQ(0.0, y);
}

TEST(LogDnorm, IsAParabolaInsideAndALogarithmOutside)
{
    EXPECT_NEAR(4.5, log_dnorm_at(1.0), likelihood_tolerance(4.5));
    EXPECT_NEAR(17.982, log_dnorm_at(1.999), 1e-3);
    EXPECT_NEAR(18.0, log_dnorm_at(JUST_BELOW_2), likelihood_tolerance(18.0));
    EXPECT_NEAR(10.355, log_dnorm_at(2.0), 1e-3);
    EXPECT_NEAR(11.166, log_dnorm_at(3.0), 1e-3);
    // Beyond the core each factor of ten costs 2 log 10.
    EXPECT_NEAR(2 * std::log(10.0), log_dnorm_at(1e6) - log_dnorm_at(1e5), 1e-13);
}

TEST(LogDnorm, IsTheNegativeLogarithmOfTheDensityToRounding)
{
    Random random(8);
    Numbers x = random.list(2000, -2.5, 2.5);
    const Numbers far = random.list(500, -100, 100);
    x.insert(x.end(), far.begin(), far.end());
    for (const double extra : {JUST_BELOW_2, 2.0, -2.0, 1e20, 1e-20, 1e-300, 1e150})
        x.push_back(extra);
    const Vector y = log_dnorm_vec(vector_of(x));
    for (std::size_t i = 0; i < x.size(); ++i) {
        const long double truth =
            plain::element_norm("sum_log_dnorm_fat", static_cast<long double>(x[i]));
        EXPECT_NEAR(static_cast<double>(truth), y[i], likelihood_tolerance(y[i])) << x[i];
    }
}

TEST(LogDnorm, IsEven)
{
    Random random(9);
    for (const double x : random.list(500, 0, 4))
        EXPECT_EQ(bits(log_dnorm_at(x)), bits(log_dnorm_at(-x))) << x;
}

TEST(LogDnorm, DoesNotTrapUntilPiTimesTheSquareOverflows)
{
    for (const double x : {7.5e153, -7.5e153}) {
        const double truth = static_cast<double>(
            plain::element_norm("sum_log_dnorm_fat", static_cast<long double>(x)));
        EXPECT_NEAR(truth, log_dnorm_at(x), likelihood_tolerance(truth));
    }
}

TEST(LogDnorm, PassesAQuietNanAtEveryPositionWithTrapsArmed)
{
    const TrapsArmed traps;
    for (std::size_t size = 1; size <= 19; ++size) {
        for (std::size_t i = 0; i < size; ++i) {
            Vector x(0.5, size);
            x[i] = QUIET_NAN;
            const Vector y = log_dnorm_vec(x);
            for (std::size_t j = 0; j < size; ++j) EXPECT_EQ(i == j, std::isnan(y[j])) << size;
        }
    }
}

TEST(LogDnorm, GivesEachElementItsOwnBranch)
{
    const double mixed[] = {0, 1.5, JUST_BELOW_2, 2, -2, 1e150, -7e153, 1e-300};
    for (std::size_t first = 0; first < std::size(mixed); ++first) {
        Numbers x;
        for (std::size_t i = 0; i < 21; ++i) x.push_back(mixed[(first + 3 * i) % std::size(mixed)]);
        const TrapsArmed traps;
        const Vector y = log_dnorm_vec(vector_of(x));
        for (std::size_t i = 0; i < x.size(); ++i) {
            EXPECT_NEAR(log_dnorm_vec(Vector{x[i]})[0], y[i], likelihood_tolerance(y[i])) << x[i];
        }
    }
}

TEST(LogDnorm, OfAMatrixIsThatOfItsStore)
{
    const Numbers r = {0, 1, 2, 3, -1, 0.5};
    const Vector y = log_dnorm(Matrix(r.data(), 2, 3));
    EXPECT_EQ(bits_of(log_dnorm_vec(vector_of(r))), bits_of(y));
    EXPECT_EQ(0u, log_dnorm(Matrix(0, 3)).size());
}

TEST(SumLogDnorm, SumsTheElementsFromLeftToRight)
{
    int order_shows = 0;
    for (std::size_t n = 1; n <= 130; ++n) {
        const Numbers r = touchy(1000 + n, n);
        const Vector y = log_dnorm(column(r));
        const Numbers values(std::begin(y), std::end(y));
        EXPECT_EQ(bits(left_to_right(values)), bits(sum_log_dnorm(column(r)))) << n;
        if (left_to_right(values) != left_to_right(reversed(values))) ++order_shows;
    }
    EXPECT_GT(order_shows, 20);
}

TEST(SumLogDnorm, AddsUpTheLikelihood)
{
    // 4.5 + 4.5 and a tail; roundings of numbers around 20.
    const long double tail = plain::element_norm("sum_log_dnorm_fat", 3.0L);
    EXPECT_NEAR(static_cast<double>(9 + tail), sum_log_dnorm(column({1, -1, 3})), 256 * EPS);
}

TEST(SumLogDnorm, OfNothingIsZero)
{
    EXPECT_EQ(0.0, sum_log_dnorm(Matrix(0, 1)));
}
