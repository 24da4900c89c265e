#include <signal.h>

#include <cmath>
#include <cstdlib>

#include "jacobian/derivative_calls.h"

// Products evaluate norms whose values nobody asks for. What would overflow in them ends the process, whether or not the
// timing line is asked for.

namespace {

Problem zeros(const char* norm, const Numbers& targets)
{
    Problem p;
    p.shape = {.numin = 2, .numout = 1, .sizes = {2, 5}, .activation = "atan", .norm = norm};
    p.nrows = static_cast<unsigned>(targets.size());
    p.xcols = 2;
    p.w = Numbers(p.shape.numel());
    p.x = Numbers(2 * targets.size());
    p.y = targets;
    return p;
}

class EvaluatedNorm : public testing::TestWithParam<bool> {
protected:
    void SetUp() override
    {
        if (GetParam()) setenv("NN_TRACE", "1", 1);
    }

    void TearDown() override { unsetenv("NN_TRACE"); }
};

TEST_P(EvaluatedNorm, OfTheSumInVJ)
{
    const double inf = INFINITY;
    for (const Numbers& targets : {Numbers{-1e308, -1e308}, Numbers{inf, -inf}}) {
        const Problem p = zeros("sum", targets);
        EXPECT_EXIT(
            call_vJ(Network(p.shape.text()), p, {1.0, 1.0}), testing::KilledBySignal(SIGFPE), "");
        EXPECT_EXIT(call_g(Network(p.shape.text()), p), testing::KilledBySignal(SIGFPE), "");
    }
}

TEST_P(EvaluatedNorm, OfTheElementsInVJVecWithAndWithoutCotangents)
{
    const Problem p = zeros("sum_log_dnorm_fat", {-1e200, -1e200});
    for (const unsigned k : {0u, 1u}) {
        EXPECT_EXIT(call_vJ_vec(Network(p.shape.text()), p, Numbers(2 * k), k),
                    testing::KilledBySignal(SIGFPE),
                    "");
    }
}

INSTANTIATE_TEST_SUITE_P(Trace, EvaluatedNorm, testing::Bool());

// Each slice has a sum of its own, which does not overflow.
TEST(SliceNorm, OfVJIsThatOfItsRows)
{
    const Problem p = zeros("sum", {-1e308, -1e308});
    const Network net(p.shape.text());
    vemk_setbatch(net, 1);
    EXPECT_EQ(Numbers({1e308, 1e308}), call_vJ(net, p, {1.0, 1.0}).r);
}

// The line's mean is a carrier: its derivatives are summed up too.
TEST(JvTrace, OverflowsWithTheDerivativesOfItsMean)
{
    Problem p;
    p.shape = {.numin = 1, .numout = 1, .sizes = {1, 1}, .activation = "id", .norm = "sum"};
    p.nrows = 2;
    p.xcols = 1;
    p.w = {0.0, 0.0, 0.0, 1.0};
    p.x = {1.0, 1.0};
    p.y = {0.0, 0.0};
    const Numbers v = {0.0, 0.0, 1e308, 0.0};
    EXPECT_EQ(Numbers({1e308, 1e308}), call_Jv(Network(p.shape.text()), p, v, 1).jac);
    const auto traced = [&] {
        setenv("NN_TRACE", "1", 1);
        call_Jv(Network(p.shape.text()), p, v, 1);
    };
    EXPECT_EXIT(traced(), testing::KilledBySignal(SIGFPE), "");
}

// Without tangents nothing is formed for them that could overflow where values do not.
TEST(WithoutTangents, ProductsTrapNoMoreThanValues)
{
    Problem p;
    p.shape = {.numin = 1, .numout = 1, .sizes = {1, 1}, .activation = "atan", .norm = "sum"};
    p.nrows = 1;
    p.xcols = 1;
    p.w = {0.0, 1.0, 0.0, 1.0};
    p.x = {1e160};
    p.y = {0.0};
    EXPECT_TRUE(call_Jv(Network(p.shape.text()), p, {}, 0).jac.empty());
    p.shape.activation = "softplus";
    p.w = {401.0, 0.0, 0.0, INFINITY};
    p.x = {1.0};
    const Numbers gradient = call_g(Network(p.shape.text()), p).gradient;
    EXPECT_EQ(gradient, call_Hv(Network(p.shape.text()), p, {}, 0).gradient);
}

}  // namespace
