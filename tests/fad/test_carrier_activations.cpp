#include "fad/carriers.h"
#include "fad/differences.h"
#include "support/activation_forms.h"
#include "support/fp_state.h"

// The activations and their adjoints over carriers. An adjoint's tangents hold the second-order terms,
//
//     xbar' = f'(x) ybar' + f''(x) ybar x'.

namespace {

using Real = long double;

struct Activation {
    const char* name;
    void (*of_doubles)(const Matrix& x, Matrix& y);
    void (*of_carriers)(const MatrixCarrier& x, MatrixCarrier& y);
    MatrixCarrier (*returned)(const MatrixCarrier& x);
    void (*adj_of_doubles)(const Matrix& x, const Matrix& ybar, Matrix& xbar);
    void (*adj_of_carriers)(const MatrixCarrier& x, const MatrixCarrier& ybar, MatrixCarrier& xbar);
    // The function and its derivative on the branch that `at` selects, written for long doubles.
    Real (*value)(Real x, Real at);
    Real (*slope)(Real x, Real at);
    // Points on every branch and on its ends; none is too near, since the truth stays on the branch of its `at`.
    Numbers points;
};

using C = MatrixCarrier;
constexpr auto ADJ_SOFTPLUS = VEMKN::adj_softplus<C>;
constexpr auto ADJ_ATAN = VEMKN::adj_act_atan<C>;
constexpr auto ADJ_RELU = VEMKN::adj_act_relu<C>;
constexpr auto ADJ_ID = VEMKN::adj_id<C>;

Real relu_value(Real x, Real at)
{
    return at < 0 ? 0 : x;
}

Real relu_slope(Real, Real at)
{
    return at < 0 ? 0 : 1;
}

Real softplus_value(Real x, Real at)
{
    return at < 300 ? std::log1p(std::exp(x)) : x;
}

Real softplus_slope(Real x, Real at)
{
    return at < 300 ? 1 / (1 + std::exp(-x)) : 1;
}

const double BELOW_300 = std::nextafter(300.0, 0.0);
const double ABOVE_300 = std::nextafter(300.0, INF);

const Numbers SOFTPLUS_POINTS = {-650,
                                 -40,
                                 -7.5,
                                 -1,
                                 -1e-8,
                                 -0.0,
                                 0.0,
                                 1e-8,
                                 0.5,
                                 1,
                                 4,
                                 37,
                                 150,
                                 299.9,
                                 BELOW_300,
                                 300,
                                 ABOVE_300,
                                 300.1,
                                 1e5};
const Numbers RELU_POINTS = {-1e300, -3, -1e-300, -5e-324, -0.0, 0.0, 5e-324, 1e-300, 2.5, 1e300};
const Numbers ATAN_POINTS = {
    -1e6, -20, -1.5, -1, -0.3, -1e-9, -0.0, 0.0, 1e-9, 0.3, 1, 1.5, 20, 1e6};

const std::vector<Activation>& activations()
{
    using namespace VEMKN;
    static const std::vector<Activation> all = {
        {"id",
         forward_of<Matrix, id<Matrix>>,
         forward_of<C, id<C>>,
         id<C>,
         adj_id<Matrix>,
         adj_id<C>,
         [](Real x, Real) { return x; },
         [](Real, Real) { return Real(1); },
         {-1e300, -2, -0.0, 0.0, 1e-300, 3, 1e300}},
        {"relu",
         forward_of<Matrix, act_relu<Matrix>>,
         forward_of<C, act_relu<C>>,
         act_relu<C>,
         adj_act_relu<Matrix>,
         adj_act_relu<C>,
         relu_value,
         relu_slope,
         RELU_POINTS},
        {"atan",
         forward_of<Matrix, act_atan<Matrix>>,
         forward_of<C, act_atan<C>>,
         act_atan<C>,
         adj_act_atan<Matrix>,
         adj_act_atan<C>,
         [](Real x, Real) { return std::atan(x); },
         [](Real x, Real) { return 1 / (1 + x * x); },
         ATAN_POINTS},
        {"softplus",
         forward_of<Matrix, softplus<Matrix>>,
         forward_of<C, softplus<C>>,
         softplus<C>,
         adj_softplus<Matrix>,
         adj_softplus<C>,
         softplus_value,
         softplus_slope,
         SOFTPLUS_POINTS},
        {"softplus_shifted",
         forward_of<Matrix, softplus_shifted<Matrix>>,
         forward_of<C, softplus_shifted<C>>,
         softplus_shifted<C>,
         adj_softplus<Matrix>,
         adj_softplus<C>,
         softplus_value,
         softplus_slope,
         SOFTPLUS_POINTS},
    };
    return all;
}

void PrintTo(const Activation& f, std::ostream* out)
{
    *out << f.name;
}

std::string name_of(const testing::TestParamInfo<Activation>& one)
{
    return one.param.name;
}

class EveryActivation : public testing::TestWithParam<Activation> {
protected:
    const Activation& f() const { return GetParam(); }
};

// Points of the activation, and random ones, in a matrix of that many elements.
Matrix arguments(const Activation& f, Random& random, std::size_t rows, std::size_t cols)
{
    Matrix x(rows, cols);
    for (double& element : x.store()) {
        element = random.below(2) == 0
                      ? f.points[random.below(static_cast<unsigned>(f.points.size()))]
                      : random.uniform(-4, 4);
    }
    return x;
}

MatrixCarrier with_random_tangents(Random& random, const Matrix& value, std::size_t n)
{
    MatrixCarrier A(value, n);
    for (Matrix& derivative : A.derivatives) {
        derivative = random_matrix(random, value.rows(), value.cols());
    }
    return A;
}

// f''(x), by differences of f'.
Real curvature(const Activation& f, double x)
{
    return derivative([&](Real at) { return f.slope(at, x); }, x);
}

// A maths function to 4 units of the last place, which a vector one may take, twice where a slope's denominator holds
// it too, and half a unit for each of up to six roundings.
constexpr Real TOLERANCE = 12 * EPS;

// Where the truth itself is a difference of numbers of this size; see differences.h.
constexpr Real DIFFERENCE = 4 * EPS;

MatrixCarrier one(double x, double dx)
{
    MatrixCarrier A(Matrix(&x, 1, 1), 1);
    A.derivatives[0].store() = dx;
    return A;
}

void expect_one(const MatrixCarrier& A, double value, double tangent)
{
    ASSERT_EQ(1u, A.size());
    ASSERT_EQ(1u, A.tangents());
    EXPECT_TRUE(same(A.value.store()[0], value)) << A.value.store()[0] << " is not " << value;
    const double computed = A.derivatives[0].store()[0];
    EXPECT_TRUE(same(computed, tangent)) << "tangent " << computed << " is not " << tangent;
}

// The same where the value comes from a maths function, which may miss the nearest double.
void expect_one_rounded(const MatrixCarrier& A, long double value, double tangent)
{
    expect_one(A, A.value.store()[0], tangent);
    EXPECT_LE(ulps(A.value.store()[0], value), 4) << "value " << A.value.store()[0];
}

// adj(x, ybar), each a value and a tangent.
template <class Adjoint>
MatrixCarrier vjp_of(const Adjoint& adj, double x, double dx, double ybar, double dybar)
{
    MatrixCarrier xbar = leftover(2, 3);
    adj(one(x, dx), one(ybar, dybar), xbar);
    return xbar;
}

}  // namespace

TEST_P(EveryActivation, HasTheValueOfItsDoubleTwinToTheBit)
{
    for (const std::size_t n : TANGENTS) {
        // Lengths around multiples of those of vector registers.
        for (std::size_t length = 0; length <= 40; ++length) {
            Random random(length);
            const Matrix x = arguments(f(), random, 1, length);
            Matrix twin;
            f().of_doubles(x, twin);
            MatrixCarrier y = leftover(3, 4);
            f().of_carriers(with_random_tangents(random, x, n), y);
            ASSERT_EQ(bits_of(twin.store()), bits_of(y.value.store())) << length;
            expect_shape(y, 1, length);
            ASSERT_EQ(n, y.tangents());
        }
    }
}

TEST_P(EveryActivation, KeepsTheShape)
{
    for (const auto& [rows, cols] : {std::pair{0, 0}, {0, 3}, {4, 0}, {5, 2}, {1, 1}}) {
        Random random(1);
        const Matrix value =
            arguments(f(), random, static_cast<std::size_t>(rows), static_cast<std::size_t>(cols));
        const MatrixCarrier x = with_random_tangents(random, value, 2);
        MatrixCarrier y = leftover(3, 4), xbar = leftover(3, 4);
        f().of_carriers(x, y);
        f().adj_of_carriers(x, x, xbar);
        for (const MatrixCarrier& result : {y, xbar, f().returned(x)}) {
            expect_shape(result, value.rows(), value.cols());
            EXPECT_EQ(2u, result.tangents());
        }
    }
}

TEST_P(EveryActivation, HasTheTangentsOfDifferences)
{
    for (const std::size_t n : TANGENTS) {
        Random random(n);
        const MatrixCarrier x =
            with_random_tangents(random, Matrix(f().points.data(), 1, f().points.size()), n);
        MatrixCarrier y;
        f().of_carriers(x, y);
        for (std::size_t i = 0; i < f().points.size(); ++i) {
            const double at = f().points[i];
            const Real slope = derivative([&](Real z) { return f().value(z, at); }, at);
            // The difference quotient must itself be the slope that the adjoint test builds on.
            EXPECT_NEAR(static_cast<double>(slope),
                        static_cast<double>(f().slope(at, at)),
                        static_cast<double>(DIFFERENCE))
                << "at " << at;
            for (std::size_t k = 0; k < n; ++k) {
                const double dx = x.derivatives[k].store()[i];
                EXPECT_LE(std::fabs(y.derivatives[k].store()[i] - slope * dx),
                          std::fabs(dx) * (std::fabs(slope) * TOLERANCE + DIFFERENCE))
                    << "at " << at;
            }
        }
    }
}

TEST_P(EveryActivation, HasTangentsOfSmallRelativeError)
{
    // Where the slope is tiny, a difference says nothing about its digits; the closed form does.
    Random random(2);
    const MatrixCarrier x =
        with_random_tangents(random, Matrix(f().points.data(), 1, f().points.size()), 1);
    MatrixCarrier y;
    f().of_carriers(x, y);
    for (std::size_t i = 0; i < f().points.size(); ++i) {
        const Real truth = f().slope(f().points[i], f().points[i]) * x.derivatives[0].store()[i];
        EXPECT_LE(std::fabs(y.derivatives[0].store()[i] - truth), std::fabs(truth) * TOLERANCE)
            << "at " << f().points[i];
    }
}

TEST_P(EveryActivation, GivesTheSameInEveryShape)
{
    // One column, narrow and wide rows, rows longer than what the loops take at once with a short rest.
    const Activation& act = GetParam();
    for (const std::size_t cols : {2u, 5u, 16u, 515u, 1030u}) {
        for (const std::size_t N : {1u, 2u, 9u}) {
            SCOPED_TRACE(testing::Message() << cols << " columns, " << N << " tangents");
            Random random(9);
            const std::size_t rows = 2060 / cols;
            const MatrixCarrier x = random_matrix_carrier(random, rows, cols, N);
            const MatrixCarrier ybar = random_matrix_carrier(random, rows, cols, N);
            const auto column = [&](const MatrixCarrier& A) {
                return asMatrix(asVector(A), rows * cols, 1);
            };
            MatrixCarrier y, xbar, y_of_column, xbar_of_column;
            act.of_carriers(x, y);
            act.adj_of_carriers(x, ybar, xbar);
            act.of_carriers(column(x), y_of_column);
            act.adj_of_carriers(column(x), column(ybar), xbar_of_column);
            expect_same_carrier(column(y), y_of_column);
            expect_same_carrier(column(xbar), xbar_of_column);
        }
    }
}

TEST_P(EveryActivation, MayWriteToItsOwnArgument)
{
    Random random(3);
    MatrixCarrier x = with_random_tangents(random, arguments(f(), random, 3, 7), 2);
    MatrixCarrier apart;
    f().of_carriers(x, apart);
    expect_same_carrier(f().returned(x), apart);
    f().of_carriers(x, x);
    expect_same_carrier(x, apart);
}

TEST_P(EveryActivation, HasTheAdjointOfItsDoubleTwinToTheBit)
{
    for (const std::size_t n : TANGENTS) {
        for (std::size_t length = 0; length <= 40; ++length) {
            Random random(length);
            const Matrix x = arguments(f(), random, 1, length);
            const Matrix ybar = random_matrix(random, 1, length);
            Matrix twin;
            f().adj_of_doubles(x, ybar, twin);
            MatrixCarrier xbar = leftover(3, 4);
            f().adj_of_carriers(
                with_random_tangents(random, x, n), with_random_tangents(random, ybar, n), xbar);
            ASSERT_EQ(bits_of(twin.store()), bits_of(xbar.value.store())) << length;
            expect_shape(xbar, 1, length);
            ASSERT_EQ(n, xbar.tangents());
        }
    }
}

TEST_P(EveryActivation, HasTheSecondOrderTermsOfDifferences)
{
    for (const std::size_t n : TANGENTS) {
        Random random(n + 4);
        const std::size_t length = f().points.size();
        const MatrixCarrier x =
            with_random_tangents(random, Matrix(f().points.data(), 1, length), n);
        const MatrixCarrier ybar = random_matrix_carrier(random, 1, length, n);
        MatrixCarrier xbar;
        f().adj_of_carriers(x, ybar, xbar);
        for (std::size_t i = 0; i < length; ++i) {
            const double at = f().points[i];
            const Real slope = f().slope(at, at), second_derivative = curvature(f(), at);
            for (std::size_t k = 0; k < n; ++k) {
                const Real first = slope * ybar.derivatives[k].store()[i];
                const Real second = ybar.value.store()[i] * x.derivatives[k].store()[i];
                EXPECT_LE(std::fabs(xbar.derivatives[k].store()[i] -
                                    (first + second_derivative * second)),
                          (std::fabs(first) + std::fabs(second_derivative * second)) * TOLERANCE +
                              std::fabs(second) * DIFFERENCE)
                    << "at " << at;
            }
        }
    }
}

TEST_P(EveryActivation, HasAnAdjointThatOverwrites)
{
    Random random(5);
    const MatrixCarrier x = with_random_tangents(random, arguments(f(), random, 2, 9), 3);
    const MatrixCarrier ybar = random_matrix_carrier(random, 2, 9, 3);
    MatrixCarrier once, twice;
    f().adj_of_carriers(x, ybar, once);
    f().adj_of_carriers(x, ybar, twice);
    f().adj_of_carriers(x, ybar, twice);
    expect_same_carrier(twice, once);
}

TEST_P(EveryActivation, HasAnAdjointThatMayWriteToTheIncomingOne)
{
    Random random(6);
    const MatrixCarrier x = with_random_tangents(random, arguments(f(), random, 2, 9), 3);
    MatrixCarrier ybar = random_matrix_carrier(random, 2, 9, 3);
    MatrixCarrier apart;
    f().adj_of_carriers(x, ybar, apart);
    f().adj_of_carriers(x, ybar, ybar);
    expect_same_carrier(ybar, apart);
}

TEST_P(EveryActivation, PassesNanOn)
{
    const MatrixCarrier y = f().returned(one(QUIET_NAN, 1.0));
    EXPECT_TRUE(std::isnan(y.value.store()[0]));
    const MatrixCarrier xbar = vjp_of(f().adj_of_carriers, 1.0, 1.0, QUIET_NAN, QUIET_NAN);
    EXPECT_TRUE(std::isnan(xbar.value.store()[0]));
    EXPECT_TRUE(std::isnan(xbar.derivatives[0].store()[0]));
}

TEST_P(EveryActivation, RaisesNoExceptionThatItsOwnBranchDoesNot)
{
    // Every element computes both branches where that is faster; with traps armed the other one must stay silent. The
    // square of 1e150 is below the largest number.
    Numbers points = f().points;
    points.insert(points.end(), {QUIET_NAN, -QUIET_NAN, 1e150, -1e150, 709.9, -745.2});
    Random random(9);
    for (std::size_t shift = 0; shift < 9; ++shift) {
        points.insert(points.begin(), 0.25);
        const MatrixCarrier x =
            with_random_tangents(random, Matrix(points.data(), 1, points.size()), 2);
        const MatrixCarrier ybar = random_matrix_carrier(random, 1, points.size(), 2);
        MatrixCarrier y, xbar;
        const TrapsArmed traps;
        f().of_carriers(x, y);
        f().adj_of_carriers(x, ybar, xbar);
    }
}

INSTANTIATE_TEST_SUITE_P(Carriers, EveryActivation, testing::ValuesIn(activations()), name_of);

TEST(CarrierId, CopiesEverything)
{
    Random random(7);
    MatrixCarrier x = random_matrix_carrier(random, 1, 4, 2);
    x.value.store() = {INF, -0.0, QUIET_NAN, 1};
    x.derivatives[1].store() = {QUIET_NAN, -0.0, -INF, 1};
    expect_same_carrier(VEMKN::id(x), x);
    MatrixCarrier xbar;
    ADJ_ID(random_matrix_carrier(random, 1, 4, 2), x, xbar);
    expect_same_carrier(xbar, x);
}

TEST(CarrierRelu, TakesTheBranchThatTheValueSelects)
{
    const auto relu = [](double x, double dx) { return VEMKN::act_relu(one(x, dx)); };
    expect_one(relu(0.0, 3.0), 0.0, 3.0);
    expect_one(relu(-0.0, 3.0), -0.0, 3.0);
    expect_one(relu(-1e-300, 3.0), 0.0, 0.0);
    expect_one(relu(1e-300, 3.0), 1e-300, 3.0);
    expect_one(relu(-3.0, -3.0), 0.0, 0.0);
    expect_one(relu(INF, -3.0), INF, -3.0);
    expect_one(relu(-INF, 3.0), 0.0, 0.0);
    // A NaN is not below zero.
    expect_one(relu(QUIET_NAN, 3.0), QUIET_NAN, 3.0);
}

TEST(CarrierRelu, SelectsTangentsInsteadOfMultiplyingThem)
{
    expect_one(VEMKN::act_relu(one(-1.0, INF)), 0.0, 0.0);
    expect_one(VEMKN::act_relu(one(-1.0, QUIET_NAN)), 0.0, 0.0);
    expect_one(VEMKN::act_relu(one(1.0, INF)), 1.0, INF);
    expect_one(VEMKN::act_relu(one(1.0, -0.0)), 1.0, -0.0);
}

TEST(CarrierAdjRelu, TakesTheBranchThatTheValueSelects)
{
    const auto adj = ADJ_RELU;
    for (const double x : {0.0, -0.0, 1e-300, 2.0, INF, QUIET_NAN}) {
        SCOPED_TRACE(x);
        expect_one(vjp_of(adj, x, 5.0, 2.0, 3.0), 2.0, 3.0);
        expect_one(vjp_of(adj, x, 5.0, -0.0, QUIET_NAN), -0.0, QUIET_NAN);
    }
    for (const double x : {-1e-300, -2.0, -INF}) {
        SCOPED_TRACE(x);
        expect_one(vjp_of(adj, x, 5.0, 2.0, 3.0), 0.0, 0.0);
        expect_one(vjp_of(adj, x, 5.0, INF, QUIET_NAN), 0.0, 0.0);
    }
}

TEST(CarrierAdjRelu, IgnoresTheTangentsOfItsArgument)
{
    const auto adj = ADJ_RELU;
    for (const double dx : {0.0, INF, QUIET_NAN}) {
        expect_one(vjp_of(adj, 1.0, dx, 2.0, 3.0), 2.0, 3.0);
        expect_one(vjp_of(adj, -1.0, dx, 2.0, 3.0), 0.0, 0.0);
    }
}

TEST(CarrierAtan, IsExactAtZeroAndFlatFarOut)
{
    const auto atan = [](double x, double dx) { return VEMKN::act_atan(one(x, dx)); };
    expect_one(atan(0.0, 3.0), 0.0, 3.0);
    expect_one(atan(-0.0, 3.0), -0.0, 3.0);
    expect_one_rounded(atan(1.0, 3.0), std::atan(1.0L), 1.5);
    expect_one_rounded(atan(INF, 3.0), std::atan(std::numeric_limits<long double>::max()), 0.0);
    expect_one_rounded(
        atan(-INF, -3.0), std::atan(std::numeric_limits<long double>::lowest()), -0.0);
    // The square overflows, as without traps it may.
    expect_one_rounded(atan(1e200, 3.0), std::atan(1e200L), 0.0);
    expect_one(atan(QUIET_NAN, 3.0), QUIET_NAN, QUIET_NAN);
    expect_one_rounded(atan(1.0, INF), std::atan(1.0L), INF);
}

TEST(CarrierAdjAtan, HasNoCurvatureAtZero)
{
    const auto adj = ADJ_ATAN;
    expect_one(vjp_of(adj, 0.0, 5.0, 2.0, 3.0), 2.0, 3.0);
    // 3/2 - 2*2*1*5/4
    expect_one(vjp_of(adj, 1.0, 5.0, 2.0, 3.0), 1.0, -3.5);
    expect_one(vjp_of(adj, -1.0, 5.0, 2.0, 3.0), 1.0, 6.5);
    expect_one(vjp_of(adj, QUIET_NAN, 5.0, 2.0, 3.0), QUIET_NAN, QUIET_NAN);
}

TEST(CarrierSoftplus, HalvesTheTangentAtZero)
{
    expect_one_rounded(VEMKN::softplus(one(0.0, 3.0)), std::log(2.0L), 1.5);
    expect_one_rounded(VEMKN::softplus(one(-0.0, 3.0)), std::log(2.0L), 1.5);
}

TEST(CarrierSoftplus, IsItsArgumentFromTheCutOffOn)
{
    for (const double x : {300.0, ABOVE_300, 1e300, INF, QUIET_NAN}) {
        SCOPED_TRACE(x);
        expect_one(VEMKN::softplus(one(x, 3.0)), x, 3.0);
        expect_one(VEMKN::softplus(one(x, -0.0)), x, -0.0);
        expect_one(VEMKN::softplus(one(x, -INF)), x, -INF);
    }
}

TEST(CarrierSoftplus, TakesTheExponentialJustBelowTheCutOff)
{
    // There 1 + e is e to the last bit, so the slope is 1 all the same; 3 e rounds, but 2 e does not.
    expect_one_rounded(VEMKN::softplus(one(BELOW_300, 2.0)), BELOW_300, 2.0);
}

TEST(CarrierSoftplus, VanishesFarBelowZero)
{
    expect_one(VEMKN::softplus(one(-800.0, 3.0)), 0.0, 0.0);
    expect_one(VEMKN::softplus(one(-800.0, -3.0)), 0.0, -0.0);
    expect_one(VEMKN::softplus(one(-INF, 3.0)), 0.0, 0.0);
}

TEST(CarrierSoftplusShifted, IsSoftplusToTheBit)
{
    Random random(8);
    for (const std::size_t n : TANGENTS) {
        const MatrixCarrier x = with_random_tangents(
            random, Matrix(SOFTPLUS_POINTS.data(), 1, SOFTPLUS_POINTS.size()), n);
        expect_same_carrier(VEMKN::softplus_shifted(x), VEMKN::softplus(x));
        MatrixCarrier shifted, plain;
        forward_of<C, VEMKN::softplus_shifted<C>>(x, shifted);
        forward_of<C, VEMKN::softplus<C>>(x, plain);
        expect_same_carrier(shifted, plain);
    }
}

TEST(CarrierAdjSoftplus, IsExactAtZero)
{
    // f' = 1/2, f'' = 1/4
    expect_one(vjp_of(ADJ_SOFTPLUS, 0.0, 5.0, 2.0, 3.0), 1.0, 4.0);
}

TEST(CarrierAdjSoftplus, PassesTheSeedFromTheCutOffOn)
{
    const auto adj = ADJ_SOFTPLUS;
    for (const double x : {300.0, ABOVE_300, 1e300, INF, QUIET_NAN}) {
        SCOPED_TRACE(x);
        expect_one(vjp_of(adj, x, 5.0, 2.0, 3.0), 2.0, 3.0);
        expect_one(vjp_of(adj, x, 5.0, -0.0, -3.0), -0.0, -3.0);
    }
}

TEST(CarrierAdjSoftplus, IgnoresTheTangentsOfItsArgumentFromTheCutOffOn)
{
    // On that branch the result is the incoming adjoint, in which x does not occur.
    const auto adj = ADJ_SOFTPLUS;
    for (const double dx : {INF, QUIET_NAN}) {
        expect_one(vjp_of(adj, 300.0, dx, 2.0, 3.0), 2.0, 3.0);
        expect_one(vjp_of(adj, 1e5, dx, 2.0, 3.0), 2.0, 3.0);
    }
}
