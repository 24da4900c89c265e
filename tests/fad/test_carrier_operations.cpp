#include "fad/carriers.h"

using yafad::do_exp;
using yafad::do_log;
using yafad::invert;

namespace {

// A maths function to 4 units of the last place, which a vector one may take, and up to four roundings.
constexpr long double TOLERANCE = 8;

// f(x) and f'(x) in long double.
struct Truth {
    long double (*value)(long double x);
    long double (*slope)(long double x);
};

void expect_ulps(double computed, long double truth)
{
    EXPECT_TRUE(ulps(computed, truth) <= TOLERANCE) << computed << " is not " << truth;
}

// Checks an operation on random carriers over the range [low, high].
template <class Operation>
void check_smooth(const Operation& operation, const Truth& truth, double low, double high)
{
    for (const std::size_t n : TANGENTS) {
        SCOPED_TRACE(testing::Message() << n << " tangents");
        Random random(n + 1);
        const VectorCarrier x = vector_carrier(random, random.list(50, low, high), n);
        const VectorCarrier y = operation(x);
        ASSERT_EQ(x.size(), y.size());
        ASSERT_EQ(n, y.tangents());
        for (std::size_t i = 0; i < x.size(); ++i) {
            expect_ulps(y.value[i], truth.value(x.value[i]));
            for (std::size_t k = 0; k < n; ++k) {
                expect_ulps(y.derivatives[k][i], truth.slope(x.value[i]) * x.derivatives[k][i]);
            }
        }
    }
}

// One element with one tangent.
VectorCarrier dual(double x, double dx)
{
    return vector_carrier({x}, {{dx}});
}

template <class Operation>
void expect_at(const Operation& operation, VectorCarrier x, VectorCarrier expected)
{
    SCOPED_TRACE(testing::Message() << "at " << x.value[0] << ", " << x.derivatives[0][0]);
    expect_same_carrier(operation(x), expected);
}

template <class Operation>
void expect_empty_to_empty(const Operation& operation)
{
    for (const std::size_t n : TANGENTS) {
        const VectorCarrier y = operation(VectorCarrier(Vector(), n));
        EXPECT_EQ(0u, y.size());
        ASSERT_EQ(n, y.tangents());
        for (const Vector& derivative : y.derivatives) EXPECT_EQ(0u, derivative.size());
    }
}

VectorCarrier log_of(const VectorCarrier& x)
{
    // A result that was something else before.
    VectorCarrier y = vector_carrier({QUIET_NAN, 1}, {{1, 2}, {3, 4}});
    do_log(y, x);
    return y;
}

VectorCarrier exp_of(const VectorCarrier& x)
{
    VectorCarrier y = vector_carrier({QUIET_NAN, 1}, {{1, 2}, {3, 4}});
    do_exp(y, x);
    return y;
}

VectorCarrier abs_of(const VectorCarrier& x)
{
    return abs(x);
}

}  // namespace

TEST(DoLog, DividesEveryTangentByTheArgument)
{
    const Truth truth = {std::log, [](long double x) { return 1 / x; }};
    check_smooth(log_of, truth, 1.5, 40.0);
    check_smooth(log_of, truth, 1e-3, 0.5);
}

TEST(DoLog, IsInfiniteAtZero)
{
    expect_at(log_of, dual(0.0, 2.0), dual(-INF, INF));
    expect_at(log_of, dual(0.0, -2.0), dual(-INF, -INF));
    expect_at(log_of, dual(-0.0, 2.0), dual(-INF, -INF));
    expect_at(log_of, dual(0.0, 0.0), dual(-INF, QUIET_NAN));
}

TEST(DoLog, FollowsTheFloatingPointRulesElsewhere)
{
    expect_at(log_of, dual(1.0, 3.0), dual(0.0, 3.0));
    expect_at(log_of, dual(-2.0, 3.0), dual(QUIET_NAN, -1.5));
    expect_at(log_of, dual(INF, 3.0), dual(INF, 0.0));
    expect_at(log_of, dual(INF, INF), dual(INF, QUIET_NAN));
    expect_at(log_of, dual(QUIET_NAN, 3.0), dual(QUIET_NAN, QUIET_NAN));
    expect_at(log_of, dual(2.0, QUIET_NAN), dual(std::log(2.0), QUIET_NAN));
}

TEST(DoLog, MayWriteToItsOwnArgument)
{
    VectorCarrier x = vector_carrier({1, 2, 4}, {{1, 1, 1}, {0, 2, -4}});
    const VectorCarrier apart = log_of(x);
    do_log(x, x);
    expect_same_carrier(x, apart);
}

TEST(DoLog, OfNothingIsNothing)
{
    expect_empty_to_empty(log_of);
}

TEST(DoExp, MultipliesEveryTangentByTheResult)
{
    const Truth truth = {std::exp, std::exp};
    check_smooth(exp_of, truth, -30.0, 30.0);
    check_smooth(exp_of, truth, -700.0, 700.0);
}

TEST(DoExp, FollowsTheFloatingPointRulesFarOut)
{
    expect_at(exp_of, dual(0.0, 3.0), dual(1.0, 3.0));
    expect_at(exp_of, dual(-0.0, 3.0), dual(1.0, 3.0));
    expect_at(exp_of, dual(800.0, 3.0), dual(INF, INF));
    expect_at(exp_of, dual(800.0, 0.0), dual(INF, QUIET_NAN));
    expect_at(exp_of, dual(-800.0, 3.0), dual(0.0, 0.0));
    expect_at(exp_of, dual(-800.0, -3.0), dual(0.0, -0.0));
    expect_at(exp_of, dual(INF, -1.0), dual(INF, -INF));
    expect_at(exp_of, dual(-INF, 3.0), dual(0.0, 0.0));
    expect_at(exp_of, dual(-INF, INF), dual(0.0, QUIET_NAN));
    expect_at(exp_of, dual(QUIET_NAN, 3.0), dual(QUIET_NAN, QUIET_NAN));
    expect_at(exp_of, dual(0.0, QUIET_NAN), dual(1.0, QUIET_NAN));
}

TEST(DoExp, MayWriteToItsOwnArgument)
{
    VectorCarrier x = vector_carrier({1, 2, -4}, {{1, 1, 1}, {0, 2, -4}});
    const VectorCarrier apart = exp_of(x);
    do_exp(x, x);
    expect_same_carrier(x, apart);
}

TEST(DoExp, OfNothingIsNothing)
{
    expect_empty_to_empty(exp_of);
}

TEST(Invert, MultipliesEveryTangentByMinusTheSquareOfTheResult)
{
    const Truth truth = {[](long double x) { return 1 / x; },
                         [](long double x) { return -1 / (x * x); }};
    check_smooth(invert, truth, 0.01, 50.0);
    check_smooth(invert, truth, -50.0, -0.01);
}

TEST(Invert, IsInfiniteAtZero)
{
    expect_at(invert, dual(0.0, 2.0), dual(INF, -INF));
    expect_at(invert, dual(-0.0, 2.0), dual(-INF, -INF));
    expect_at(invert, dual(0.0, -2.0), dual(INF, INF));
    expect_at(invert, dual(0.0, 0.0), dual(INF, QUIET_NAN));
}

TEST(Invert, FollowsTheFloatingPointRulesElsewhere)
{
    expect_at(invert, dual(2.0, 8.0), dual(0.5, -2.0));
    expect_at(invert, dual(INF, 3.0), dual(0.0, -0.0));
    expect_at(invert, dual(-INF, 3.0), dual(-0.0, -0.0));
    expect_at(invert, dual(INF, INF), dual(0.0, QUIET_NAN));
    expect_at(invert, dual(QUIET_NAN, 3.0), dual(QUIET_NAN, QUIET_NAN));
    expect_at(invert, dual(2.0, QUIET_NAN), dual(0.5, QUIET_NAN));
}

TEST(Invert, OfNothingIsNothing)
{
    expect_empty_to_empty(invert);
}

TEST(Abs, TurnsTheTangentsWhereTheSignBitIsSet)
{
    for (const std::size_t n : TANGENTS) {
        Random random(9);
        const VectorCarrier x = vector_carrier(random, random.list(40), n);
        const VectorCarrier y = abs_of(x);
        ASSERT_EQ(x.size(), y.size());
        ASSERT_EQ(n, y.tangents());
        for (std::size_t i = 0; i < x.size(); ++i) {
            const bool negative = x.value[i] < 0;
            EXPECT_EQ(negative ? -x.value[i] : x.value[i], y.value[i]);
            for (std::size_t k = 0; k < n; ++k) {
                const double tangent = x.derivatives[k][i];
                EXPECT_EQ(negative ? -tangent : tangent, y.derivatives[k][i]);
            }
        }
    }
}

TEST(Abs, GoesByTheSignBitAtZeroInfinityAndNan)
{
    expect_at(abs_of, dual(0.0, 3.0), dual(0.0, 3.0));
    expect_at(abs_of, dual(-0.0, 3.0), dual(0.0, -3.0));
    expect_at(abs_of, dual(INF, 3.0), dual(INF, 3.0));
    expect_at(abs_of, dual(-INF, 3.0), dual(INF, -3.0));
    expect_at(abs_of, dual(std::copysign(QUIET_NAN, 1.0), 3.0), dual(QUIET_NAN, 3.0));
    expect_at(abs_of, dual(std::copysign(QUIET_NAN, -1.0), 3.0), dual(QUIET_NAN, -3.0));
    expect_at(abs_of, dual(-1.0, INF), dual(1.0, -INF));
    expect_at(abs_of, dual(-1.0, QUIET_NAN), dual(1.0, QUIET_NAN));
    expect_at(abs_of, dual(-1.0, 0.0), dual(1.0, -0.0));
}

TEST(Abs, OfNothingIsNothing)
{
    expect_empty_to_empty(abs_of);
}
