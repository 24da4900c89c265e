#include "fad/carriers.h"
#include "vemkn_errors.h"

using yafad::ADD_SCALAR;
using yafad::DIVIDE_SCALAR;
using yafad::ExpResult;
using yafad::ExpResult2;
using yafad::LOG;
using yafad::MULTIPLY;
using yafad::NEGATE;

namespace {

// The numbers are fixed, not just the names.
static_assert(yafad::ADD_SCALAR == 1 && yafad::NEGATE == 2 && yafad::MULTIPLY == 3);
static_assert(yafad::DIVIDE_SCALAR == 4 && yafad::EXP == 5 && yafad::LOG == 6);

// A maths function to 4 units of the last place, which a vector one may take, and up to four roundings. Between
// the steps of a nesting errors are carried on undiminished: each step is well-conditioned at the points used.
constexpr long double TOLERANCE = 16;

template <class Node>
VectorCarrier fetched(const Node& node)
{
    // Into a carrier that was something else before.
    VectorCarrier y = vector_carrier({QUIET_NAN, 1}, {{1, 2}, {3, 4}});
    node.fetch(y);
    return y;
}

VectorCarrier dual(double x, double dx)
{
    return vector_carrier({x}, {{dx}});
}

struct Pair {
    VectorCarrier a, b;
};

// Two random operands with entries in [low, high].
Pair operands(std::size_t n, double low = -2.0, double high = 2.0)
{
    Random random(n + 1);
    VectorCarrier a = vector_carrier(random, random.list(21, low, high), n);
    VectorCarrier b = vector_carrier(random, random.list(21, low, high), n);
    return {std::move(a), std::move(b)};
}

// Every element of y against value(i) and derivative(k, i).
template <class Value, class Derivative>
void expect_elements(const VectorCarrier& y,
                     const Pair& x,
                     const Value& value,
                     const Derivative& derivative)
{
    ASSERT_EQ(x.a.size(), y.size());
    ASSERT_EQ(x.a.tangents(), y.tangents());
    for (std::size_t i = 0; i < y.size(); ++i) {
        EXPECT_LE(ulps(y.value[i], value(i)), TOLERANCE) << i;
        for (std::size_t k = 0; k < y.tangents(); ++k) {
            EXPECT_LE(ulps(y.derivatives[k][i], derivative(k, i)), TOLERANCE) << k << ", " << i;
        }
    }
}

template <class Node>
void expect_empty_to_empty(const Node& node, std::size_t n)
{
    const VectorCarrier y = fetched(node);
    EXPECT_EQ(0u, y.size());
    EXPECT_EQ(n, y.tangents());
}

}  // namespace

TEST(AddScalarNode, AddsToTheValueOnly)
{
    for (const std::size_t n : TANGENTS) {
        const Pair x = operands(n);
        const VectorCarrier y = fetched(ExpResult2<VectorCarrier, double, ADD_SCALAR>{x.a, 0.75});
        VectorCarrier expected = x.a;
        expected.value += 0.75;
        expect_same_carrier(y, expected);
        expect_same_carrier(fetched(x.a + 0.75), expected);
    }
}

TEST(AddScalarNode, LetsNonFiniteOperandsThrough)
{
    expect_same_carrier(fetched(dual(INF, QUIET_NAN) + -INF), dual(QUIET_NAN, QUIET_NAN));
    expect_same_carrier(fetched(dual(1.0, -0.0) + INF), dual(INF, -0.0));
    expect_same_carrier(fetched(dual(-0.0, 1.0) + -0.0), dual(-0.0, 1.0));
}

TEST(NegateNode, FlipsEverySignBit)
{
    for (const std::size_t n : TANGENTS) {
        const Pair x = operands(n);
        VectorCarrier expected = x.a;
        expected.value *= -1.0;
        for (Vector& derivative : expected.derivatives) derivative *= -1.0;
        expect_same_carrier(fetched(ExpResult<VectorCarrier, NEGATE>{x.a}), expected);
        expect_same_carrier(fetched(-x.a), expected);
    }
}

TEST(NegateNode, FlipsTheSignBitOfZeroAndNanToo)
{
    // 0 - x would give +0.0 for 0.0 and keep the sign of a NaN.
    for (const double x : {0.0, -0.0, INF, -INF}) {
        const VectorCarrier y = fetched(-dual(x, x));
        EXPECT_EQ(bits(-x), bits(y.value[0]));
        EXPECT_EQ(bits(-x), bits(y.derivatives[0][0]));
    }
    for (const double sign : {1.0, -1.0}) {
        const double nan = std::copysign(QUIET_NAN, sign);
        const VectorCarrier y = fetched(-dual(nan, nan));
        EXPECT_NE(std::signbit(nan), std::signbit(y.value[0]));
        EXPECT_TRUE(std::isnan(y.value[0]));
        EXPECT_NE(std::signbit(nan), std::signbit(y.derivatives[0][0]));
    }
}

TEST(MultiplyNode, FollowsTheProductRule)
{
    for (const std::size_t n : TANGENTS) {
        // Positive factors and tangents of either sign: the two terms may cancel, so derivatives are compared to the
        // size of the terms.
        const Pair x = operands(n);
        for (const VectorCarrier& y :
             {fetched(ExpResult2<VectorCarrier, VectorCarrier, MULTIPLY>{x.a, x.b}),
              fetched(x.a * x.b),
              VectorCarrier(x.a * x.b)}) {
            ASSERT_EQ(x.a.size(), y.size());
            ASSERT_EQ(n, y.tangents());
            for (std::size_t i = 0; i < y.size(); ++i) {
                EXPECT_EQ(x.a.value[i] * x.b.value[i], y.value[i]);
                for (std::size_t k = 0; k < n; ++k) {
                    const long double first =
                        static_cast<long double>(x.a.derivatives[k][i]) * x.b.value[i];
                    const long double second =
                        static_cast<long double>(x.a.value[i]) * x.b.derivatives[k][i];
                    // Two products and a sum, half a unit each.
                    EXPECT_NEAR(
                        static_cast<double>(first + second),
                        y.derivatives[k][i],
                        static_cast<double>(std::fabs(first) + std::fabs(second)) * 2 * EPS);
                }
            }
        }
    }
}

TEST(MultiplyNode, OfACarrierWithItselfIsItsSquare)
{
    const VectorCarrier x = dual(3.0, 2.0);
    expect_same_carrier(fetched(x * x), dual(9.0, 12.0));
}

TEST(MultiplyNode, LetsNonFiniteOperandsThrough)
{
    expect_same_carrier(fetched(dual(INF, 1.0) * dual(0.0, 1.0)), dual(QUIET_NAN, INF));
    expect_same_carrier(fetched(dual(2.0, 0.0) * dual(INF, 1.0)), dual(INF, QUIET_NAN));
    expect_same_carrier(fetched(dual(2.0, 1.0) * dual(QUIET_NAN, 1.0)), dual(QUIET_NAN, QUIET_NAN));
    expect_same_carrier(fetched(dual(-0.0, 1.0) * dual(3.0, 0.0)), dual(-0.0, 3.0));
}

TEST(MultiplyNode, MayBeFetchedIntoAnOperand)
{
    VectorCarrier a = vector_carrier({2, 3}, {{1, 1}, {5, 7}});
    VectorCarrier b = vector_carrier({4, 6}, {{1, 2}, {3, 4}});
    const VectorCarrier expected = vector_carrier({8, 18}, {{6, 12}, {26, 54}});
    VectorCarrier to_b = b;
    (a * to_b).fetch(to_b);
    expect_same_carrier(to_b, expected);
    (a * b).fetch(a);
    expect_same_carrier(a, expected);
}

TEST(DivideScalarNode, DividesTheValueAndEveryTangent)
{
    for (const std::size_t n : TANGENTS) {
        const Pair x = operands(n);
        VectorCarrier expected = x.a;
        expected.value /= -0.3;
        for (Vector& derivative : expected.derivatives) derivative /= -0.3;
        expect_same_carrier(fetched(ExpResult2<VectorCarrier, double, DIVIDE_SCALAR>{x.a, -0.3}),
                            expected);
        expect_same_carrier(fetched(x.a / -0.3), expected);
    }
}

namespace {

struct Counter : yafad::ErrorHandler {
    int reports = 0;

    void report(yafad::Error&) override { ++reports; }
};

}  // namespace

TEST(DivideScalarNode, ByZeroIsNotReported)
{
    // Only the division of a scalar carrier looks out for a zero divisor.
    Counter counter;
    yafad::ErrorHandler::getHandler() = &counter;
    expect_same_carrier(fetched(dual(2.0, -1.0) / 0.0), dual(INF, -INF));
    expect_same_carrier(fetched(dual(2.0, -1.0) / -0.0), dual(-INF, INF));
    expect_same_carrier(fetched(dual(0.0, -1.0) / 0.0), dual(QUIET_NAN, -INF));
    expect_same_carrier(fetched(log(dual(0.0, 1.0))), dual(-INF, INF));
    yafad::ErrorHandler::getHandler() = nullptr;
    EXPECT_EQ(0, counter.reports);
}

TEST(ExpNode, IsDoExp)
{
    for (const std::size_t n : TANGENTS) {
        const Pair x = operands(n);
        expect_elements(
            fetched(ExpResult<VectorCarrier, yafad::EXP>{x.a}),
            x,
            [&](std::size_t i) { return std::exp(static_cast<long double>(x.a.value[i])); },
            [&](std::size_t k, std::size_t i) {
                return std::exp(static_cast<long double>(x.a.value[i])) * x.a.derivatives[k][i];
            });
    }
}

TEST(LogNode, IsDoLog)
{
    for (const std::size_t n : TANGENTS) {
        const Pair x = operands(n, 1.5, 4.0);
        expect_elements(
            fetched(ExpResult<VectorCarrier, LOG>{x.a}),
            x,
            [&](std::size_t i) { return std::log(static_cast<long double>(x.a.value[i])); },
            [&](std::size_t k, std::size_t i) {
                return static_cast<long double>(x.a.derivatives[k][i]) / x.a.value[i];
            });
    }
}

TEST(NestedNodes, GiveSoftplus)
{
    for (const std::size_t n : TANGENTS) {
        const Pair x = operands(n);
        const auto e = [&](std::size_t i) {
            return std::exp(static_cast<long double>(x.a.value[i]));
        };
        expect_elements(
            fetched(log(exp(x.a) + 1.0)),
            x,
            [&](std::size_t i) { return std::log(1 + e(i)); },
            [&](std::size_t k, std::size_t i) {
                return e(i) / (1 + e(i)) * x.a.derivatives[k][i];
            });
    }
}

TEST(NestedNodes, GiveTheNegativeLogarithm)
{
    for (const std::size_t n : TANGENTS) {
        const Pair x = operands(n, 1.5, 4.0);
        expect_elements(
            fetched(-log(x.a)),
            x,
            [&](std::size_t i) { return -std::log(static_cast<long double>(x.a.value[i])); },
            [&](std::size_t k, std::size_t i) {
                return -static_cast<long double>(x.a.derivatives[k][i]) / x.a.value[i];
            });
    }
}

TEST(NestedNodes, GiveTheExponentialOfAScaledProduct)
{
    for (const std::size_t n : TANGENTS) {
        const Pair x = operands(n, 0.5, 2.0);
        // Equal factors, as where it occurs, so that the terms of the product rule do not cancel.
        const auto g = [&](std::size_t i) {
            const long double a = x.a.value[i];
            return std::exp(a * a / -0.5L);
        };
        expect_elements(fetched(exp((x.a * x.a) / -0.5)), x, g, [&](std::size_t k, std::size_t i) {
            return g(i) * 2 * x.a.value[i] * x.a.derivatives[k][i] / -0.5L;
        });
    }
}

TEST(NestedNodes, MayBeFetchedIntoTheirInnermostOperand)
{
    VectorCarrier x = vector_carrier({1, 2}, {{3, 4}});
    const VectorCarrier apart = fetched(log(exp(x) + 1.0));
    log(exp(x) + 1.0).fetch(x);
    expect_same_carrier(x, apart);

    x = vector_carrier({1, 2}, {{3, 4}});
    (-x).fetch(x);
    expect_same_carrier(x, vector_carrier({-1, -2}, {{-3, -4}}));
    (x / 2.0).fetch(x);
    expect_same_carrier(x, vector_carrier({-0.5, -1}, {{-1.5, -2}}));
    (x + 1.0).fetch(x);
    expect_same_carrier(x, vector_carrier({0.5, 0}, {{-1.5, -2}}));
}

TEST(NestedNodes, OfNothingAreNothing)
{
    for (const std::size_t n : TANGENTS) {
        const VectorCarrier x(Vector(), n);
        expect_empty_to_empty(x + 1.0, n);
        expect_empty_to_empty(-x, n);
        expect_empty_to_empty(x * x, n);
        expect_empty_to_empty(x / 2.0, n);
        expect_empty_to_empty(exp(x), n);
        expect_empty_to_empty(log(x), n);
        expect_empty_to_empty(log(exp(x) + 1.0), n);
        expect_empty_to_empty(-log(x), n);
        expect_empty_to_empty(exp((x * x) / -0.5), n);
    }
}

TEST(NestedNodes, CarryNonFiniteEntriesInsideOut)
{
    // exp overflows, and log takes it back no more.
    expect_same_carrier(fetched(log(exp(dual(800.0, 1.0)) + 1.0)), dual(INF, QUIET_NAN));
    expect_same_carrier(fetched(-log(dual(0.0, 1.0))), dual(INF, -INF));
    expect_same_carrier(fetched(exp((dual(INF, 0.0) * dual(INF, 0.0)) / -2.0)),
                        dual(0.0, QUIET_NAN));
    expect_same_carrier(fetched(-log(dual(QUIET_NAN, 1.0))), dual(QUIET_NAN, QUIET_NAN));
}
