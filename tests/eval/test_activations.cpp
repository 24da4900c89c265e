#include <gtest/gtest.h>

#include "support/activation_forms.h"
#include "support/fp_state.h"
#include "support/numbers.h"
#include "support/plain_network.h"

using namespace VEMKN;
using Matrix = MatrixTemplate<double>;

namespace {

struct Activation {
    const char* name;
    void (*into)(const Matrix& x, Matrix& y);
    Matrix (*of)(const Matrix& x);
};

const Activation ACTIVATIONS[] = {
    {"softplus", forward_of<Matrix, softplus<Matrix>>, softplus<Matrix>},
    {"softplus_shifted", forward_of<Matrix, softplus_shifted<Matrix>>, softplus_shifted<Matrix>},
    {"atan", forward_of<Matrix, act_atan<Matrix>>, act_atan<Matrix>},
    {"relu", forward_of<Matrix, act_relu<Matrix>>, act_relu<Matrix>},
    {"id", forward_of<Matrix, id<Matrix>>, id<Matrix>},
};

Matrix row(const Numbers& x)
{
    return Matrix(x.data(), 1, x.size());
}

double at(Matrix (*f)(const Matrix&), double x)
{
    const TrapsArmed traps;
    return f(row({x}))(0, 0);
}

constexpr Matrix (*SOFTPLUS)(const Matrix&) = softplus<Matrix>;
constexpr Matrix (*SHIFTED)(const Matrix&) = softplus_shifted<Matrix>;
constexpr Matrix (*ATAN)(const Matrix&) = act_atan<Matrix>;
constexpr Matrix (*RELU)(const Matrix&) = act_relu<Matrix>;
constexpr Matrix (*ID)(const Matrix&) = id<Matrix>;

class EveryActivation : public testing::TestWithParam<Activation> {};

std::string name_of(const testing::TestParamInfo<Activation>& instance)
{
    return instance.param.name;
}

// e^x + 1, its logarithm, and e^x with up to four units in the last place each where loops become vector code.
double softplus_tolerance(double y)
{
    return 8 * EPS * std::max(1.0, y);
}

}  // namespace

TEST_P(EveryActivation, OfAnEmptyMatrixHasItsDimensions)
{
    for (const auto& [rows, cols] : {std::pair(0, 0), std::pair(0, 3), std::pair(5, 0)}) {
        const Matrix x(static_cast<std::uint64_t>(rows), static_cast<std::uint64_t>(cols));
        Matrix y(2, 2);
        GetParam().into(x, y);
        EXPECT_EQ(x.rows(), y.rows());
        EXPECT_EQ(x.cols(), y.cols());
        EXPECT_EQ(0u, y.size());
        const Matrix z = GetParam().of(x);
        EXPECT_EQ(x.rows(), z.rows());
        EXPECT_EQ(x.cols(), z.cols());
    }
}

TEST_P(EveryActivation, KeepsTheDimensionsAndOverwritesItsResult)
{
    const Numbers x = {-2, -1, 0, 1, 2, 3};
    Matrix y(9, 1);
    y.store() = QUIET_NAN;
    for (int call = 0; call < 2; ++call) {
        GetParam().into(Matrix(x.data(), 3, 2), y);
        EXPECT_EQ(3u, y.rows());
        EXPECT_EQ(2u, y.cols());
        EXPECT_EQ(bits_of(GetParam().of(row(x)).store()), bits_of(y.store()));
    }
}

TEST_P(EveryActivation, MayOverwriteItsArgument)
{
    const Numbers x = {-700, -2, -1, -0.0, 0, 1, 299, 300, 301};
    Matrix y = row(x);
    GetParam().into(y, y);
    EXPECT_EQ(bits_of(GetParam().of(row(x)).store()), bits_of(y.store()));
}

TEST_P(EveryActivation, IsTheFunctionOfItsNameToRounding)
{
    Random random(4);
    Numbers x = random.list(4000, -40, 40);
    for (const double extra : {-800.0, -745.0, 0.0, 1e-300, 299.9, 350.0, 1e10}) x.push_back(extra);
    Matrix y;
    {
        const TrapsArmed traps;
        GetParam().into(row(x), y);
    }
    const std::string name = GetParam().name;
    for (std::size_t i = 0; i < x.size(); ++i) {
        const auto truth = plain::activation(name, static_cast<long double>(x[i]));
        const double computed = y(0, i);
        // atan: four units in the last place, where loops become vector code. relu, id: exact.
        const double tolerance = name == "atan"                   ? 4 * EPS * std::abs(computed)
                                 : name == "relu" || name == "id" ? 0.0
                                                                  : softplus_tolerance(computed);
        EXPECT_TRUE(std::fabs(static_cast<long double>(computed) - truth) <=
                    static_cast<long double>(tolerance))
            << x[i] << ": " << computed;
    }
}

TEST_P(EveryActivation, PassesAQuietNanAtEveryPositionWithTrapsArmed)
{
    for (std::size_t size = 1; size <= 19; ++size) {
        for (std::size_t i = 0; i < size; ++i) {
            Numbers x(size, 0.5);
            x[i] = QUIET_NAN;
            Matrix y;
            {
                const TrapsArmed traps;
                GetParam().into(row(x), y);
            }
            for (std::size_t j = 0; j < size; ++j) EXPECT_EQ(i == j, std::isnan(y(0, j))) << size;
        }
    }
}

TEST_P(EveryActivation, DoesNotTrapNextToElementsOfTheOtherBranch)
{
    // Vector code that worked out both branches for all elements would overflow in exp(1e308).
    const double mixed[] = {-INF, -1e308, -800, -0.0, 0, 1, 299.5, 300, 301, 800, 1e308, INF};
    for (std::size_t first = 0; first < std::size(mixed); ++first) {
        Numbers x;
        for (std::size_t i = 0; i < 23; ++i) x.push_back(mixed[(first + 5 * i) % std::size(mixed)]);
        Matrix y;
        {
            const TrapsArmed traps;
            GetParam().into(row(x), y);
        }
        for (std::size_t i = 0; i < x.size(); ++i) {
            const double alone = at(GetParam().of, x[i]);
            if (std::isinf(alone)) {
                EXPECT_EQ(alone, y(0, i));
            } else {
                EXPECT_NEAR(alone, y(0, i), softplus_tolerance(alone)) << x[i];
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Names, EveryActivation, testing::ValuesIn(ACTIVATIONS), name_of);

TEST(Softplus, IsItsArgumentFromTheCutOffOn)
{
    for (const double x :
         {300.0, std::nextafter(300.0, 301.0), 300.5, 709.0, 710.0, 1e10, 1.7e308, INF}) {
        EXPECT_EQ(x, at(SOFTPLUS, x)) << x;
    }
}

TEST(Softplus, IsTheLogarithmBelowTheCutOff)
{
    for (const double x : {std::nextafter(300.0, 0.0), 299.9, 299.0, 36.0, 1.0}) {
        const double truth =
            static_cast<double>(std::log(1.0L + std::exp(static_cast<long double>(x))));
        EXPECT_NEAR(truth, at(SOFTPLUS, x), softplus_tolerance(truth)) << x;
    }
}

TEST(Softplus, OfZeroIsTheLogarithmOfTwo)
{
    EXPECT_NEAR(std::log(2.0), at(SOFTPLUS, 0.0), 4 * EPS);
    EXPECT_NEAR(std::log(2.0), at(SOFTPLUS, -0.0), 4 * EPS);
}

TEST(Softplus, IsExactlyZeroWhereTheExponentialVanishesBesideOne)
{
    // log(1 + e^x) with the sum rounded: a routine for log(1 + small) would give e^x here.
    for (const double x : {-38.0, -40.0, -100.0, -745.2, -800.0, -1e10, -1.7e308, -INF}) {
        EXPECT_EQ(bits(0.0), bits(at(SOFTPLUS, x))) << x;
    }
}

TEST(SoftplusShifted, IsSoftplusToTheBit)
{
    Random random(5);
    Numbers x = random.list(10001, -50, 350);
    for (const double extra : {-INF,
                               -800.0,
                               -0.0,
                               0.0,
                               299.9,
                               std::nextafter(300.0, 0.0),
                               300.0,
                               1e308,
                               INF,
                               QUIET_NAN}) {
        x.push_back(extra);
    }
    EXPECT_EQ(bits_of(softplus(row(x)).store()), bits_of(softplus_shifted(row(x)).store()));
    EXPECT_NEAR(std::log(2.0), at(SHIFTED, 0.0), 4 * EPS);
}

TEST(ActRelu, CutsNegativeArgumentsOnly)
{
    EXPECT_EQ(bits(0.0), bits(at(RELU, -3.0)));
    EXPECT_EQ(bits(0.0), bits(at(RELU, -1e-300)));
    EXPECT_EQ(bits(0.0), bits(at(RELU, -4.9e-324)));
    EXPECT_EQ(bits(0.0), bits(at(RELU, -INF)));
    EXPECT_EQ(bits(0.0), bits(at(RELU, 0.0)));
    EXPECT_EQ(4.9e-324, at(RELU, 4.9e-324));
    EXPECT_EQ(2.5, at(RELU, 2.5));
    EXPECT_EQ(INF, at(RELU, INF));
}

TEST(ActRelu, KeepsNegativeZero)
{
    EXPECT_TRUE(is_negative_zero(at(RELU, -0.0)));
}

TEST(ActAtan, TendsToHalfPi)
{
    const double half_pi = 1.5707963267948966;
    for (const double x : {1e17, 1e300, 1.7e308, INF}) {
        EXPECT_NEAR(half_pi, at(ATAN, x), 4 * EPS) << x;
        EXPECT_NEAR(-half_pi, at(ATAN, -x), 4 * EPS) << x;
    }
    EXPECT_NEAR(half_pi - 1e-5, at(ATAN, 1e5), 1e-15);
}

TEST(ActAtan, KeepsTinyArgumentsAndNegativeZero)
{
    EXPECT_EQ(1e-300, at(ATAN, 1e-300));
    EXPECT_TRUE(is_negative_zero(at(ATAN, -0.0)));
}

TEST(Id, CopiesEveryBit)
{
    for (const double x : {-INF, -1.5, -0.0, 0.0, 4.9e-324, 1.7e308, INF, QUIET_NAN}) {
        EXPECT_EQ(bits(x), bits(at(ID, x)));
    }
}
