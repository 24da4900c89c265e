#include "fad/carriers.h"
#include "fad/differences.h"
#include "support/fp_state.h"

// The norms and their adjoints over carriers.

namespace {

using Real = long double;

const double BELOW_2 = std::nextafter(2.0, 0.0);
const double ABOVE_2 = std::nextafter(2.0, INF);

const Numbers POINTS = {-1e6,  -30,     -3,  -ABOVE_2, -2.0, -BELOW_2, -1.9, -1,       -0.2,
                        -1e-9, -0.0,    0.0, 1e-9,     0.2,  1,        1.9,  1.999999, BELOW_2,
                        2.0,   ABOVE_2, 2.5, 3,        10,   1e3,      1e6};

// The negative log-likelihood of an element on the branch that `at` selects, written for long doubles, and its
// derivative.
constexpr Real GAMMA = 0.0004785973257525766L;
constexpr Real PI = 3.14159265358979323846264338327950288L;
constexpr Real LOG_DENSITY_AT_0 = 0.179673755463437060L;

Real log_dnorm_value(Real x, Real at)
{
    if (std::fabs(at) < 2) return 4.5L * x * x;
    return LOG_DENSITY_AT_0 + std::log(PI * (x * x + GAMMA * GAMMA) / GAMMA);
}

Real log_dnorm_slope(Real x, Real at)
{
    return std::fabs(at) < 2 ? 9 * x : 2 * x / (x * x + GAMMA * GAMMA);
}

// A maths function to 4 units of the last place, which a vector one may take, and half a unit for each of up to ten
// roundings, that of the stored variance among them.
constexpr Real TOLERANCE = 16 * EPS;

// Where the truth itself is a difference; see differences.h. Values are below 40.
constexpr Real DIFFERENCE = 40 * EPS;

Numbers arguments(Random& random, std::size_t n)
{
    Numbers x(n);
    for (double& element : x) {
        element = random.below(2) == 0 ? POINTS[random.below(static_cast<unsigned>(POINTS.size()))]
                                       : random.uniform(-4, 4);
    }
    return x;
}

VectorCarrier one(double x, double dx)
{
    return vector_carrier({x}, {{dx}});
}

// A matrix carrier of that shape with the contents of v.
MatrixCarrier shaped(const VectorCarrier& v, std::size_t rows, std::size_t cols)
{
    MatrixCarrier A(Matrix(rows, cols), v.tangents());
    A.value.store() = v.value;
    for (std::size_t k = 0; k < v.tangents(); ++k) A.derivatives[k].store() = v.derivatives[k];
    return A;
}

VectorCarrier flat(const MatrixCarrier& A)
{
    VectorCarrier v(A.value.store(), A.tangents());
    for (std::size_t k = 0; k < A.tangents(); ++k) v.derivatives[k] = A.derivatives[k].store();
    return v;
}

Scalar scalar(Random& random, std::size_t n)
{
    const TangentCounts counts(n);
    Scalar s(random.uniform(-2, 2));
    for (double& derivative : s.derivatives) derivative = random.uniform(-2, 2);
    return s;
}

// s in each of n elements.
VectorCarrier filled(const Scalar& s, std::size_t n)
{
    VectorCarrier v(Vector(s.value, n), s.N);
    for (std::size_t k = 0; k < s.N; ++k) v.derivatives[k] = s.derivatives[k];
    return v;
}

double in_order(const Vector& v)
{
    double total = v.size() == 0 ? 0.0 : v[0];
    for (std::size_t i = 1; i < v.size(); ++i) total += v[i];
    return total;
}

// s against the sums of v's parts from the first element to the last, to the bit.
void expect_sums(const Scalar& s, const VectorCarrier& v)
{
    EXPECT_EQ(bits(in_order(v.value)), bits(s.value));
    EXPECT_EQ(v.tangents(), s.N);
    ASSERT_EQ(v.tangents(), s.derivatives.size());
    for (std::size_t k = 0; k < v.tangents(); ++k) {
        EXPECT_EQ(bits(in_order(v.derivatives[k])), bits(s.derivatives[k])) << k;
    }
}

MatrixCarrier adj_log_dnorm_of(const MatrixCarrier& R, const VectorCarrier& vbar)
{
    MatrixCarrier Rbar(Matrix(R.rows(), R.cols()), R.tangents());
    VEMKN::adj_log_dnorm(R, vbar, Rbar);
    return Rbar;
}

}  // namespace

TEST(CarrierNormfun, IsTheStoreWithItsTangents)
{
    for (const std::size_t n : TANGENTS) {
        Random random(1);
        const VectorCarrier v = vector_carrier(random, random.list(12), n);
        expect_same_carrier(VEMKN::normfun(shaped(v, 3, 4)), v);
    }
    const Numbers any = {INF, -INF, QUIET_NAN, -0.0};
    expect_same_carrier(VEMKN::normfun(shaped(vector_carrier(any, {any}), 2, 2)),
                        vector_carrier(any, {any}));
    EXPECT_EQ(0u, VEMKN::normfun(MatrixCarrier(Matrix(0, 3), 2)).size());
    EXPECT_EQ(2u, VEMKN::normfun(MatrixCarrier(Matrix(0, 3), 2)).tangents());
}

TEST(CarrierAdjNormfun, IsTheSeedInTheShapeOfTheArgument)
{
    for (const std::size_t n : TANGENTS) {
        Random random(2);
        const MatrixCarrier R = random_matrix_carrier(random, 3, 2, n);
        const VectorCarrier vbar = vector_carrier(random, random.list(6), n);
        MatrixCarrier Rbar = random_matrix_carrier(random, 3, 2, n);
        for (int time = 0; time < 2; ++time) {
            VEMKN::adj_normfun(R, vbar, Rbar);
            expect_shape(Rbar, 3, 2);
            expect_same_carrier(flat(Rbar), vbar);
        }
    }
}

TEST(CarrierNormfunSum, AddsUpTheStoreInOrder)
{
    for (const std::size_t n : TANGENTS) {
        const TangentCounts counts(n);
        Random random(3);
        const VectorCarrier v = vector_carrier(random, random.list(35), n);
        const MatrixCarrier R = shaped(v, 7, 5);
        expect_sums(VEMKN::normfun_sum(R), v);
        EXPECT_EQ(bits(VEMKN::normfun_sum(R.value)), bits(VEMKN::normfun_sum(R).value));
    }
}

TEST(CarrierNormfunSum, NeitherSquaresNorTakesAbsoluteValues)
{
    const TangentCounts counts(1);
    const Scalar s = VEMKN::normfun_sum(shaped(vector_carrier({1, -1}, {{2, -5}}), 1, 2));
    EXPECT_EQ(0.0, s.value);
    EXPECT_EQ(-3.0, s.derivatives[0]);
}

TEST(CarrierNormfunSum, OfNothingIsZero)
{
    const TangentCounts counts(3);
    expect_sums(VEMKN::normfun_sum(MatrixCarrier(Matrix(0, 2), 3)), VectorCarrier(Vector(), 3));
}

TEST(CarrierAdjNormfunSum, PutsTheSeedEverywhere)
{
    for (const std::size_t n : TANGENTS) {
        Random random(4);
        const MatrixCarrier R = random_matrix_carrier(random, 3, 2, n);
        const Scalar sbar = scalar(random, n);
        MatrixCarrier Rbar = random_matrix_carrier(random, 3, 2, n);
        for (int time = 0; time < 2; ++time) {
            VEMKN::adj_normfun_sum(R, sbar, Rbar);
            expect_shape(Rbar, 3, 2);
            expect_same_carrier(flat(Rbar), filled(sbar, 6));
        }
    }
}

TEST(CarrierAdjNormfunSum, IgnoresItsArgument)
{
    Random random(5);
    const Scalar sbar = scalar(random, 1);
    MatrixCarrier R(Matrix(1, 2), 1), Rbar(Matrix(1, 2), 1);
    R.value.store() = {INF, QUIET_NAN};
    R.derivatives[0].store() = QUIET_NAN;
    VEMKN::adj_normfun_sum(R, sbar, Rbar);
    expect_same_carrier(flat(Rbar), filled(sbar, 2));
}

TEST(CarrierLogDnorm, HasTheValueOfItsDoubleTwinToTheBit)
{
    for (const std::size_t n : TANGENTS) {
        // Lengths around multiples of those of vector registers.
        for (std::size_t length = 0; length <= 40; ++length) {
            Random random(length);
            const VectorCarrier x = vector_carrier(random, arguments(random, length), n);
            const VectorCarrier y = VEMKN::log_dnorm_vec(x);
            ASSERT_EQ(bits_of(VEMKN::log_dnorm_vec(x.value)), bits_of(y.value)) << length;
            ASSERT_EQ(n, y.tangents());
            for (const Vector& derivative : y.derivatives) EXPECT_EQ(length, derivative.size());
            expect_same_carrier(VEMKN::log_dnorm(shaped(x, 1, length)), y);
        }
    }
}

TEST(CarrierLogDnorm, HasTheTangentsOfDifferences)
{
    for (const std::size_t n : TANGENTS) {
        Random random(n);
        const VectorCarrier x = vector_carrier(random, POINTS, n);
        const VectorCarrier y = VEMKN::log_dnorm_vec(x);
        for (std::size_t i = 0; i < POINTS.size(); ++i) {
            const double at = POINTS[i];
            const Real slope = derivative([&](Real z) { return log_dnorm_value(z, at); }, at);
            // The rounding of the density is an absolute error of its logarithm.
            EXPECT_LE(std::fabs(y.value[i] - log_dnorm_value(at, at)), DIFFERENCE) << "at " << at;
            // The difference quotient must itself be the slope that the adjoint test builds on.
            EXPECT_NEAR(static_cast<double>(slope),
                        static_cast<double>(log_dnorm_slope(at, at)),
                        static_cast<double>(DIFFERENCE));
            for (std::size_t k = 0; k < n; ++k) {
                const double dx = x.derivatives[k][i];
                EXPECT_LE(std::fabs(y.derivatives[k][i] - slope * dx),
                          std::fabs(dx) * (std::fabs(slope) * TOLERANCE + DIFFERENCE))
                    << "at " << at;
                // And of small relative error, where the slope is small.
                const Real truth = log_dnorm_slope(at, at) * dx;
                EXPECT_LE(std::fabs(y.derivatives[k][i] - truth), std::fabs(truth) * TOLERANCE)
                    << "at " << at;
            }
        }
    }
}

TEST(CarrierLogDnorm, IsExactlyZeroAtZeroAndFlatThere)
{
    for (const double zero : {0.0, -0.0}) {
        const VectorCarrier y = VEMKN::log_dnorm_vec(one(zero, 3.0));
        EXPECT_EQ(bits(0.0), bits(y.value[0]));
        EXPECT_EQ(0.0, y.derivatives[0][0]);
    }
}

TEST(CarrierLogDnorm, TakesTheBranchThatTheValueSelects)
{
    // The core ends just inside |x| = 2, where its slope is 18; 2 itself is in the tail, of slope 1.
    for (const double sign : {1.0, -1.0}) {
        for (const auto& [at, slope] : {std::pair{BELOW_2, 18.0}, {2.0, 1.0}, {ABOVE_2, 1.0}}) {
            const VectorCarrier y = VEMKN::log_dnorm_vec(one(sign * at, 1.0));
            // The tail's scale, squared, is left out of these slopes.
            EXPECT_NEAR(sign * slope, y.derivatives[0][0], 1e-6) << sign * at;
            EXPECT_NEAR(slope == 18.0 ? 18.0 : 10.355, y.value[0], 1e-3);
        }
    }
}

TEST(CarrierLogDnorm, SendsNanToTheTail)
{
    const VectorCarrier y = VEMKN::log_dnorm_vec(one(QUIET_NAN, 1.0));
    EXPECT_TRUE(std::isnan(y.value[0]));
    EXPECT_TRUE(std::isnan(y.derivatives[0][0]));
    // A NaN tangent leaves the value alone.
    const VectorCarrier z = VEMKN::log_dnorm_vec(one(1.0, QUIET_NAN));
    EXPECT_EQ(bits(VEMKN::log_dnorm_vec(Vector{1.0})[0]), bits(z.value[0]));
    EXPECT_TRUE(std::isnan(z.derivatives[0][0]));
}

TEST(CarrierLogDnorm, IsInfiniteAtInfinity)
{
    for (const double x : {INF, -INF}) {
        EXPECT_EQ(INF, VEMKN::log_dnorm_vec(one(x, 1.0)).value[0]);
    }
}

TEST(CarrierSumLogDnorm, AddsUpTheElementsInOrder)
{
    for (const std::size_t n : TANGENTS) {
        const TangentCounts counts(n);
        for (const std::size_t length : {0u, 1u, 7u, 40u}) {
            Random random(6);
            const VectorCarrier x = vector_carrier(random, arguments(random, length), n);
            const VectorCarrier elements = VEMKN::log_dnorm_vec(x);
            expect_sums(VEMKN::sum_log_dnorm_vec(x), elements);
            const Scalar s = VEMKN::sum_log_dnorm(shaped(x, 1, length));
            expect_sums(s, elements);
            EXPECT_EQ(bits(VEMKN::sum_log_dnorm(Matrix(shaped(x, 1, length).value))),
                      bits(s.value));
        }
    }
}

TEST(CarrierAdjLogDnorm, HasTheAdjointOfItsDoubleTwinToTheBit)
{
    for (const std::size_t n : TANGENTS) {
        for (std::size_t length = 0; length <= 40; ++length) {
            Random random(length);
            const VectorCarrier x = vector_carrier(random, arguments(random, length), n);
            const VectorCarrier ybar = vector_carrier(random, random.list(length), n);
            VectorCarrier xbar = vector_carrier({QUIET_NAN, 1}, {{1, 2}});
            VEMKN::adj_log_dnorm_vec(x, ybar, xbar);
            Vector twin;
            VEMKN::adj_log_dnorm_vec(x.value, ybar.value, twin);
            ASSERT_EQ(bits_of(twin), bits_of(xbar.value)) << length;
            ASSERT_EQ(n, xbar.tangents());
            const MatrixCarrier Rbar = adj_log_dnorm_of(shaped(x, 1, length), ybar);
            expect_shape(Rbar, 1, length);
            expect_same_carrier(flat(Rbar), xbar);
        }
    }
}

TEST(CarrierAdjLogDnorm, HasTheSecondOrderTermsOfDifferences)
{
    for (const std::size_t n : TANGENTS) {
        Random random(n + 7);
        const VectorCarrier x = vector_carrier(random, POINTS, n);
        const VectorCarrier ybar = vector_carrier(random, random.list(POINTS.size()), n);
        VectorCarrier xbar;
        VEMKN::adj_log_dnorm_vec(x, ybar, xbar);
        for (std::size_t i = 0; i < POINTS.size(); ++i) {
            const double at = POINTS[i];
            const Real slope = log_dnorm_slope(at, at);
            const Real curvature = derivative([&](Real z) { return log_dnorm_slope(z, at); }, at);
            for (std::size_t k = 0; k < n; ++k) {
                const Real first = slope * ybar.derivatives[k][i];
                const Real second = ybar.value[i] * x.derivatives[k][i];
                EXPECT_LE(std::fabs(xbar.derivatives[k][i] - (first + curvature * second)),
                          (std::fabs(first) + std::fabs(curvature * second)) * TOLERANCE +
                              std::fabs(second) * DIFFERENCE)
                    << "at " << at;
            }
        }
    }
}

TEST(CarrierAdjLogDnorm, BendsUpInTheCoreAndDownInTheTail)
{
    for (const double sign : {1.0, -1.0}) {
        for (const auto& [at, curvature] :
             {std::pair{0.0, 9.0}, {1.0, 9.0}, {BELOW_2, 9.0}, {2.0, -0.5}, {ABOVE_2, -0.5}}) {
            VectorCarrier xbar;
            VEMKN::adj_log_dnorm_vec(one(sign * at, 1.0), one(1.0, 0.0), xbar);
            // The tail's scale, squared, is left out.
            EXPECT_NEAR(curvature, xbar.derivatives[0][0], 1e-6) << sign * at;
        }
    }
}

TEST(CarrierAdjLogDnorm, SendsNanToTheTail)
{
    VectorCarrier xbar;
    VEMKN::adj_log_dnorm_vec(one(QUIET_NAN, 1.0), one(1.0, 1.0), xbar);
    EXPECT_TRUE(std::isnan(xbar.value[0]));
    EXPECT_TRUE(std::isnan(xbar.derivatives[0][0]));
    VEMKN::adj_log_dnorm_vec(one(1.0, 1.0), one(QUIET_NAN, 1.0), xbar);
    EXPECT_TRUE(std::isnan(xbar.value[0]));
    EXPECT_TRUE(std::isnan(xbar.derivatives[0][0]));
}

TEST(CarrierAdjLogDnorm, Overwrites)
{
    Random random(8);
    const VectorCarrier x = vector_carrier(random, arguments(random, 12), 3);
    const VectorCarrier ybar = vector_carrier(random, random.list(12), 3);
    VectorCarrier once, twice;
    VEMKN::adj_log_dnorm_vec(x, ybar, once);
    VEMKN::adj_log_dnorm_vec(x, ybar, twice);
    VEMKN::adj_log_dnorm_vec(x, ybar, twice);
    expect_same_carrier(twice, once);
}

TEST(CarrierAdjLogDnorm, RaisesNoExceptionThatItsOwnBranchDoesNot)
{
    // Every element computes core and tail where that is faster; with traps armed the other one must stay silent. The
    // fourth power of 1e70 is below the largest number.
    Numbers points = POINTS;
    points.insert(points.end(), {QUIET_NAN, -QUIET_NAN, 1e70, -1e70, 1e-300, -1e-300, 5e-324});
    Random random(10);
    for (std::size_t shift = 0; shift < 9; ++shift) {
        points.insert(points.begin(), 0.25);
        const VectorCarrier x = vector_carrier(random, points, 2);
        const VectorCarrier ybar = vector_carrier(random, random.list(points.size()), 2);
        VectorCarrier xbar;
        const TrapsArmed traps;
        VEMKN::log_dnorm_vec(x);
        VEMKN::adj_log_dnorm_vec(x, ybar, xbar);
    }
}

TEST(CarrierAdjSumLogDnorm, IsThatOfTheElementsWithTheSeedEverywhere)
{
    for (const std::size_t n : TANGENTS) {
        for (const std::size_t length : {0u, 1u, 7u, 40u}) {
            Random random(9);
            const VectorCarrier x = vector_carrier(random, arguments(random, length), n);
            const Scalar sbar = scalar(random, n);
            VectorCarrier expected, xbar;
            VEMKN::adj_log_dnorm_vec(x, filled(sbar, length), expected);
            VEMKN::adj_sum_log_dnorm_vec(x, sbar, xbar);
            expect_same_carrier(xbar, expected);

            MatrixCarrier Rbar(Matrix(1, length), n);
            for (int time = 0; time < 2; ++time) {
                VEMKN::adj_sum_log_dnorm(shaped(x, 1, length), sbar, Rbar);
                expect_shape(Rbar, 1, length);
                expect_same_carrier(flat(Rbar), expected);
            }
            Matrix twin(1, length);
            VEMKN::adj_sum_log_dnorm(shaped(x, 1, length).value, sbar.value, twin);
            EXPECT_EQ(bits_of(twin.store()), bits_of(Rbar.value.store()));
        }
    }
}

TEST(CarrierAdjSumLogDnorm, HasTheSlopeAndCurvatureOfTheCore)
{
    const TangentCounts counts(1);
    MatrixCarrier R(Matrix(1, 2), 1), Rbar(Matrix(1, 2), 1);
    R.value.store() = {1, 0};
    R.derivatives[0].store() = 1;
    VEMKN::adj_sum_log_dnorm(R, Scalar(1.0), Rbar);
    // 4.5 x^2
    EXPECT_NEAR(9.0, Rbar.value.store()[0], 9 * static_cast<double>(TOLERANCE));
    EXPECT_EQ(0.0, Rbar.value.store()[1]);
    for (const double curvature : Rbar.derivatives[0].store()) {
        EXPECT_NEAR(9.0, curvature, 9 * static_cast<double>(TOLERANCE));
    }
}
