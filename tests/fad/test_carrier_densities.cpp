#include "fad/carriers.h"

// The density of the likelihood and its adjoint, one carrier operation after the other: against closed forms, and then
// against the likelihood kernels, which take the same way in one pass.

namespace {

using Real = long double;

constexpr Real PI = 3.14159265358979323846264338327950288L;
constexpr double GAMMA = 0.0004785973257525766;
constexpr double THIRD = 0.3333333333333333;
constexpr double LOG_DENSITY_AT_0 = 0.17967375546343706;

const double BELOW_2 = std::nextafter(2.0, 0.0);

const Numbers CORE = {-BELOW_2, -1.5, -0.7, -1e-3, -0.0, 0.0, 1e-8, 0.3, 1, 1.9, BELOW_2};
const Numbers TAIL = {-1e4, -17, -2.5, -2, 2, std::nextafter(2.0, INF), 3, 40, 1e5};
const Numbers ALL = {-1e4, -1.5, -2, -0.7, -0.0, 0.0, 2, 0.3, BELOW_2, 3, 1e-8, 40, -BELOW_2, 1};

// A density with its first two derivatives.
struct Density {
    Real value, slope, curvature;
};

Density gauss(Real x, Real sigma)
{
    const Real variance = sigma * sigma;
    const Real f = std::exp(-x * x / (2 * variance)) / std::sqrt(2 * PI * variance);
    return {f, -x / variance * f, (x * x / variance - 1) / variance * f};
}

Density cauchy(Real x)
{
    const Real gamma = GAMMA, q = x * x + gamma * gamma;
    return {gamma / (PI * q),
            -2 * gamma * x / (PI * q * q),
            gamma / PI * (8 * x * x / (q * q * q) - 2 / (q * q))};
}

Density fat(Real x, double sigma)
{
    return std::fabs(x) < 6 * sigma ? gauss(x, sigma) : cauchy(x);
}

// Half a unit for each of up to twelve roundings, a maths function to 4 units, and the exponent's own rounding carried
// through exp, which makes it up to 18 times as large in the core.
constexpr Real TOLERANCE = 32 * EPS;

void expect_relative(double computed, Real truth, Real scale)
{
    EXPECT_LE(std::fabs(computed - truth), scale * TOLERANCE) << computed << " is not " << truth;
}

// f against density(x) along every tangent.
template <class Function>
void expect_density(const VectorCarrier& f, const VectorCarrier& x, const Function& density)
{
    ASSERT_EQ(x.size(), f.size());
    ASSERT_EQ(x.tangents(), f.tangents());
    for (std::size_t i = 0; i < x.size(); ++i) {
        SCOPED_TRACE(x.value[i]);
        const Density truth = density(x.value[i]);
        expect_relative(f.value[i], truth.value, truth.value);
        for (std::size_t k = 0; k < x.tangents(); ++k) {
            const Real tangent = truth.slope * x.derivatives[k][i];
            expect_relative(f.derivatives[k][i], tangent, std::fabs(tangent));
        }
    }
}

// xbar against w * density'(x) along every tangent.
template <class Function>
void expect_adjoint(const VectorCarrier& xbar,
                    const VectorCarrier& x,
                    const VectorCarrier& w,
                    const Function& density)
{
    ASSERT_EQ(x.size(), xbar.size());
    ASSERT_EQ(x.tangents(), xbar.tangents());
    for (std::size_t i = 0; i < x.size(); ++i) {
        SCOPED_TRACE(x.value[i]);
        const Density truth = density(x.value[i]);
        const Real adjoint = truth.slope * w.value[i];
        expect_relative(xbar.value[i], adjoint, std::fabs(adjoint));
        for (std::size_t k = 0; k < x.tangents(); ++k) {
            const Real first = truth.slope * w.derivatives[k][i];
            const Real second = truth.curvature * w.value[i] * x.derivatives[k][i];
            // The curvature is a difference of terms that are up to |curvature| + slope^2/value each.
            const Real terms = std::fabs(first) + std::fabs(second) +
                               truth.slope * truth.slope / truth.value *
                                   std::fabs(w.value[i] * x.derivatives[k][i]);
            expect_relative(xbar.derivatives[k][i], first + second, terms);
        }
    }
}

// Calls check(x, w) with random tangents, for every number of tangents.
template <class Check>
void with_tangents(const Numbers& points, const Check& check)
{
    for (const std::size_t n : TANGENTS) {
        SCOPED_TRACE(testing::Message() << n << " tangents");
        Random random(n + 1);
        const VectorCarrier x = vector_carrier(random, points, n);
        const VectorCarrier w = vector_carrier(random, random.list(points.size()), n);
        check(x, w);
    }
}

}  // namespace

TEST(CarrierInCore, GoesByTheValueStrictlyInsideSixSigma)
{
    const VectorCarrier x = vector_carrier({BELOW_2, 2, -BELOW_2, -2, 0.0, -0.0, INF, QUIET_NAN},
                                           {{5, 5, 5, 5, 5, 5, 5, QUIET_NAN}});
    const std::valarray<bool> core = yafad::in_core(x, THIRD);
    const std::vector<bool> expected = {true, false, true, false, true, true, false, false};
    EXPECT_EQ(expected, std::vector<bool>(std::begin(core), std::end(core)));
}

TEST(CarrierDcauchy, FollowsTheQuotientRule)
{
    Numbers points = TAIL;
    // The formula holds everywhere, the density is used in the tail only.
    points.insert(points.end(), {-0.1, -GAMMA, 0.0, GAMMA / 2, GAMMA, 1});
    with_tangents(points, [](const VectorCarrier& x, const VectorCarrier&) {
        expect_density(yafad::dcauchy(x, GAMMA), x, cauchy);
    });
}

TEST(CarrierFatDnorm, HasAGaussianCoreAndACauchyTail)
{
    for (const double sigma : {THIRD, 0.5}) {
        with_tangents(ALL, [&](const VectorCarrier& x, const VectorCarrier&) {
            expect_density(yafad::fat_dnorm(x, sigma), x, [&](Real at) { return fat(at, sigma); });
        });
    }
}

TEST(CarrierFatDnorm, HasTheValuesOfItsDoubleTwin)
{
    with_tangents(ALL, [](const VectorCarrier& x, const VectorCarrier&) {
        const Vector twin = VEMKN::fat_dnorm(x.value, THIRD);
        const VectorCarrier f = yafad::fat_dnorm(x, THIRD);
        for (std::size_t i = 0; i < x.size(); ++i) {
            // The same formula; the exponentials may come from the scalar and from the vector maths library.
            EXPECT_LE(ulps(f.value[i], twin[i]), 8) << x.value[i];
        }
    });
}

TEST(CarrierFatDnorm, TakesAllOfOneBranchAndNothing)
{
    for (const Numbers& points : {CORE, TAIL, Numbers{}}) {
        with_tangents(points, [&](const VectorCarrier& x, const VectorCarrier& w) {
            expect_density(yafad::fat_dnorm(x, THIRD), x, [](Real at) { return fat(at, THIRD); });
            VectorCarrier xbar = vector_carrier({1, 2}, {{3, 4}});
            yafad::fat_dnorm_adjoint(x, w, xbar, THIRD);
            expect_adjoint(xbar, x, w, [](Real at) { return fat(at, THIRD); });
        });
    }
}

TEST(CarrierFatDnorm, SendsNanToTheTail)
{
    const VectorCarrier f =
        yafad::fat_dnorm(vector_carrier({QUIET_NAN, 1.0}, {{1, QUIET_NAN}}), THIRD);
    EXPECT_TRUE(std::isnan(f.value[0]));
    EXPECT_TRUE(std::isnan(f.derivatives[0][0]));
    expect_relative(f.value[1], gauss(1, THIRD).value, gauss(1, THIRD).value);
    EXPECT_TRUE(std::isnan(f.derivatives[0][1]));
}

TEST(CarrierAdjDcauchy, HasTheSecondOrderTerms)
{
    with_tangents(TAIL, [](const VectorCarrier& x, const VectorCarrier& w) {
        VectorCarrier xbar = vector_carrier({1, 2}, {{3, 4}});
        for (int time = 0; time < 2; ++time) {
            yafad::adj_dcauchy(x, GAMMA, w, xbar);
            expect_adjoint(xbar, x, w, cauchy);
        }
    });
}

TEST(CarrierFatDnormAdjoint, HasTheSecondOrderTerms)
{
    for (const double sigma : {THIRD, 0.5}) {
        with_tangents(ALL, [&](const VectorCarrier& x, const VectorCarrier& w) {
            VectorCarrier xbar = vector_carrier({1, 2}, {{3, 4}});
            for (int time = 0; time < 2; ++time) {
                yafad::fat_dnorm_adjoint(x, w, xbar, sigma);
                expect_adjoint(xbar, x, w, [&](Real at) { return fat(at, sigma); });
            }
        });
    }
}

TEST(CarrierFatDnormAdjoint, HasTheValuesOfItsDoubleTwin)
{
    with_tangents(ALL, [](const VectorCarrier& x, const VectorCarrier& w) {
        Vector twin;
        VEMKN::fat_dnorm_adjoint(x.value, w.value, twin, THIRD);
        VectorCarrier xbar;
        yafad::fat_dnorm_adjoint(x, w, xbar, THIRD);
        for (std::size_t i = 0; i < x.size(); ++i) {
            // The order of the products is free, and the exponentials may come from two libraries.
            EXPECT_LE(ulps(xbar.value[i], twin[i]), 12) << x.value[i];
        }
    });
}

TEST(CarrierLikelihood, EqualsTheWayThroughTheDensityStepByStep)
{
    with_tangents(ALL, [](const VectorCarrier& x, const VectorCarrier&) {
        const VectorCarrier f = yafad::fat_dnorm(x, THIRD);
        VectorCarrier steps;
        (-log(f) + LOG_DENSITY_AT_0).fetch(steps);
        const VectorCarrier fused = VEMKN::log_dnorm_vec(x);
        for (std::size_t i = 0; i < x.size(); ++i) {
            SCOPED_TRACE(x.value[i]);
            // The rounding of f, up to 18 units, is an absolute error of its logarithm, whose values are below 40.
            EXPECT_NEAR(steps.value[i], fused.value[i], 64 * EPS);
            for (std::size_t k = 0; k < x.tangents(); ++k) {
                expect_relative(fused.derivatives[k][i],
                                steps.derivatives[k][i],
                                std::fabs(steps.derivatives[k][i]));
            }
        }
    });
}

TEST(CarrierLikelihood, HasTheAdjointOfTheWayThroughTheDensityStepByStep)
{
    with_tangents(ALL, [](const VectorCarrier& x, const VectorCarrier& ybar) {
        // w = (-ybar)/f, then w f'(x)
        VectorCarrier negated, w, steps, fused;
        (-ybar).fetch(negated);
        (negated * invert(yafad::fat_dnorm(x, THIRD))).fetch(w);
        yafad::fat_dnorm_adjoint(x, w, steps, THIRD);
        VEMKN::adj_log_dnorm_vec(x, ybar, fused);
        for (std::size_t i = 0; i < x.size(); ++i) {
            SCOPED_TRACE(x.value[i]);
            expect_relative(fused.value[i], steps.value[i], std::fabs(steps.value[i]));
            const Density f = fat(x.value[i], THIRD);
            const Real slope = std::fabs(f.slope / f.value),
                       curvature = std::fabs(f.curvature / f.value);
            for (std::size_t k = 0; k < x.tangents(); ++k) {
                // Step by step the curvature is what remains of terms as large as slope^2.
                const Real terms = slope * std::fabs(ybar.derivatives[k][i]) +
                                   (curvature + 2 * slope * slope) *
                                       std::fabs(ybar.value[i] * x.derivatives[k][i]);
                expect_relative(fused.derivatives[k][i], steps.derivatives[k][i], terms);
            }
        }
    });
}
