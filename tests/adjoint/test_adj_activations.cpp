#include <gtest/gtest.h>

#include "support/activation_forms.h"
#include "support/fp_state.h"
#include "support/numbers.h"
#include "support/plain_network.h"

using namespace VEMKN;
using Matrix = MatrixTemplate<double>;

namespace {

struct Adjoint {
    const char* name;
    void (*vjp)(const Matrix& x, const Matrix& ybar, Matrix& xbar);
};

constexpr auto ADJ_SOFTPLUS = adj_softplus<Matrix>;
constexpr auto ADJ_ATAN = adj_act_atan<Matrix>;
constexpr auto ADJ_RELU = adj_act_relu<Matrix>;
constexpr auto ADJ_ID = adj_id<Matrix>;

const Adjoint ADJOINTS[] = {
    {"softplus", ADJ_SOFTPLUS},
    {"atan", ADJ_ATAN},
    {"relu", ADJ_RELU},
    {"id", ADJ_ID},
};

Matrix row(const Numbers& x)
{
    return Matrix(x.data(), 1, x.size());
}

double at(decltype(Adjoint::vjp) vjp, double x, double ybar)
{
    Matrix xbar;
    const TrapsArmed traps;
    vjp(row({x}), row({ybar}), xbar);
    return xbar(0, 0);
}

// The derivative from the plain function, by a complex step.
long double slope(const std::string& name, double x)
{
    return plain::activation(name, plain::Complex(x, plain::STEP)).imag() / plain::STEP;
}

constexpr double JUST_BELOW_300 = 299.99999999999994;

class EveryAdjoint : public testing::TestWithParam<Adjoint> {};

std::string name_of(const testing::TestParamInfo<Adjoint>& instance)
{
    return instance.param.name;
}

}  // namespace

TEST_P(EveryAdjoint, IsTheIncomingAdjointTimesTheDerivative)
{
    Random random(30);
    Numbers x = random.list(3000, -30, 30);
    for (const double extra : {-700.0, -1e-8, 1e-8, 250.0, 299.9, JUST_BELOW_300, 300.5, 1e5}) {
        x.push_back(extra);
    }
    const Numbers ybar = random.list(x.size(), -3, 3);
    Matrix xbar;
    {
        const TrapsArmed traps;
        GetParam().vjp(row(x), row(ybar), xbar);
    }
    for (std::size_t i = 0; i < x.size(); ++i) {
        const long double truth = slope(GetParam().name, x[i]) * static_cast<long double>(ybar[i]);
        // exp to four units in the last place in vector code, and four operations.
        EXPECT_LE(ulps(xbar(0, i), truth), 12) << x[i] << " " << ybar[i];
    }
}

TEST_P(EveryAdjoint, TakesTheShapeOfItsArgument)
{
    const Numbers x = {-2, -1, 0, 1, 2, 3};
    for (const auto& [rows, cols] : {std::pair(3, 2), std::pair(2, 3), std::pair(6, 1)}) {
        const auto r = static_cast<std::uint64_t>(rows), c = static_cast<std::uint64_t>(cols);
        Matrix xbar(4, 4);
        GetParam().vjp(Matrix(x.data(), r, c), Matrix(x.data(), r, c), xbar);
        EXPECT_EQ(r, xbar.rows());
        EXPECT_EQ(c, xbar.cols());
        EXPECT_EQ(6u, xbar.size());
    }
    Matrix xbar(4, 4);
    GetParam().vjp(Matrix(0, 3), Matrix(0, 3), xbar);
    EXPECT_EQ(0u, xbar.rows());
    EXPECT_EQ(3u, xbar.cols());
}

TEST_P(EveryAdjoint, OverwritesItsResult)
{
    const Numbers x = {-2, -0.0, 0, 1, 299, 300, 301}, ybar = {1, 2, 3, 4, 5, 6, 7};
    Matrix first, again = row(Numbers(7, QUIET_NAN));
    GetParam().vjp(row(x), row(ybar), first);
    for (int call = 0; call < 2; ++call) {
        GetParam().vjp(row(x), row(ybar), again);
        EXPECT_EQ(bits_of(first.store()), bits_of(again.store()));
    }
}

TEST_P(EveryAdjoint, MayOverwriteTheIncomingAdjoint)
{
    const Numbers x = {-2, -0.0, 0, 1, 299, 300, 301}, ybar = {1, 2, 3, 4, 5, 6, 7};
    Matrix first, in_place = row(ybar);
    GetParam().vjp(row(x), row(ybar), first);
    GetParam().vjp(row(x), in_place, in_place);
    EXPECT_EQ(bits_of(first.store()), bits_of(in_place.store()));
}

TEST_P(EveryAdjoint, PassesQuietNansAtEveryPositionWithTrapsArmed)
{
    for (std::size_t size = 1; size <= 19; ++size) {
        for (std::size_t i = 0; i < size; ++i) {
            Numbers x(size, 0.5), ybar(size, 2.0), nan_x = x, nan_ybar = ybar;
            nan_x[i] = nan_ybar[i] = QUIET_NAN;
            Matrix of_x, of_ybar;
            {
                const TrapsArmed traps;
                GetParam().vjp(row(nan_x), row(ybar), of_x);
                GetParam().vjp(row(x), row(nan_ybar), of_ybar);
            }
            for (std::size_t j = 0; j < size; ++j) {
                EXPECT_EQ(i == j, std::isnan(of_ybar(0, j))) << size;
                if (i == j) continue;
                EXPECT_EQ(at(GetParam().vjp, 0.5, 2.0), of_x(0, j)) << size;
            }
        }
    }
}

TEST_P(EveryAdjoint, DoesNotTrapNextToElementsOfTheOtherBranch)
{
    const double mixed[] = {-1e150, -800, -0.0, 0, 1, JUST_BELOW_300, 300, 800, 1e150};
    for (std::size_t first = 0; first < std::size(mixed); ++first) {
        Numbers x;
        for (std::size_t i = 0; i < 23; ++i) x.push_back(mixed[(first + 5 * i) % std::size(mixed)]);
        Matrix xbar;
        {
            const TrapsArmed traps;
            GetParam().vjp(row(x), row(Numbers(x.size(), 2.0)), xbar);
        }
        for (std::size_t i = 0; i < x.size(); ++i) {
            EXPECT_DOUBLE_EQ(at(GetParam().vjp, x[i], 2.0), xbar(0, i)) << x[i];
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Names, EveryAdjoint, testing::ValuesIn(ADJOINTS), name_of);

TEST(AdjActRelu, PassesTheSeedAtExactlyZero)
{
    EXPECT_EQ(7.5, at(ADJ_RELU, 0.0, 7.5));
    EXPECT_EQ(7.5, at(ADJ_RELU, -0.0, 7.5));
}

TEST(AdjActRelu, IsZeroJustBelowZeroAndTheSeedJustAbove)
{
    for (const double tiny : {1e-300, 4.9e-324}) {
        EXPECT_EQ(bits(0.0), bits(at(ADJ_RELU, -tiny, -7.5)));
        EXPECT_EQ(-7.5, at(ADJ_RELU, tiny, -7.5));
    }
    EXPECT_EQ(0.0, at(ADJ_RELU, -INF, 7.5));
    EXPECT_EQ(7.5, at(ADJ_RELU, INF, 7.5));
}

TEST(AdjActRelu, DropsASeedOfNanBelowZero)
{
    // A selection, not a product with 0.
    EXPECT_EQ(bits(0.0), bits(at(ADJ_RELU, -1.0, QUIET_NAN)));
    EXPECT_EQ(bits(0.0), bits(at(ADJ_RELU, -1.0, INF)));
}

TEST(AdjActRelu, PassesTheSeedWhereTheArgumentIsNan)
{
    EXPECT_EQ(7.5, at(ADJ_RELU, QUIET_NAN, 7.5));
}

TEST(AdjActAtan, IsTheSeedAtZeroAndVanishesAtInfinity)
{
    EXPECT_EQ(7.5, at(ADJ_ATAN, 0.0, 7.5));
    EXPECT_EQ(0.0, at(ADJ_ATAN, INF, 7.5));
    EXPECT_EQ(3.75, at(ADJ_ATAN, -1.0, 7.5));
}

TEST(AdjSoftplus, IsHalfTheSeedAtZero)
{
    EXPECT_EQ(3.75, at(ADJ_SOFTPLUS, 0.0, 7.5));
    EXPECT_EQ(3.75, at(ADJ_SOFTPLUS, -0.0, 7.5));
}

TEST(AdjSoftplus, IsTheSeedFromTheCutOffOn)
{
    for (const double x : {300.0, 300.00000000000006, 710.0, 1e308, INF}) {
        EXPECT_EQ(0.1, at(ADJ_SOFTPLUS, x, 0.1)) << x;
    }
    // And, to rounding, just below.
    EXPECT_LE(ulps(at(ADJ_SOFTPLUS, JUST_BELOW_300, 0.1), 0.1), 4);
}

TEST(AdjSoftplus, IsZeroWhereTheExponentialVanishes)
{
    EXPECT_EQ(0.0, at(ADJ_SOFTPLUS, -800.0, 7.5));
    EXPECT_EQ(0.0, at(ADJ_SOFTPLUS, -INF, 7.5));
}

TEST(AdjSoftplus, PassesTheSeedWhereTheArgumentIsNan)
{
    EXPECT_EQ(7.5, at(ADJ_SOFTPLUS, QUIET_NAN, 7.5));
}

TEST(AdjId, CopiesTheSeedToTheBit)
{
    for (const double seed : {-0.0, INF, QUIET_NAN, 4.9e-324}) {
        EXPECT_EQ(bits(seed), bits(at(ADJ_ID, 3.0, seed)));
    }
}
