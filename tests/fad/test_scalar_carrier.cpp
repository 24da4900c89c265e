#include <cstdint>
#include <iostream>
#include <locale>
#include <stdexcept>

#include "fad/carriers.h"
#include "support/capture.h"

using Report = yafad::Discontinuity<Scalar>;

namespace {

Scalar scalar(double value, const Numbers& derivatives)
{
    const TangentCounts counts(0, derivatives.size());
    Scalar a(value);
    a.derivatives = vector_of(derivatives);
    return a;
}

void expect_scalar(const Scalar& a, double value, const Numbers& derivatives)
{
    EXPECT_TRUE(same(a.value, value)) << a.value << " is not " << value;
    expect_same(a.derivatives, derivatives, "derivative");
}

// What one report held while the handler ran.
struct Seen {
    std::string file, message;
    int line, category;
    const Scalar* result;
    const Scalar* left;
    double left_value;
    double right_value;
    Numbers right_derivatives;
    std::uint64_t right_N;
};

// Installed for a scope.
class Recorder : public yafad::ErrorHandler {
public:
    Recorder() { getHandler() = this; }

    ~Recorder() override { getHandler() = nullptr; }

    void report(yafad::Error& error) override
    {
        const auto* const report = dynamic_cast<const Report*>(&error);
        ASSERT_NE(nullptr, report);
        const Vector& right = report->right.derivatives;
        seen.push_back({error.file,
                        error.message,
                        error.line,
                        error.category,
                        &report->result,
                        &report->left,
                        report->left.value,
                        report->right.value,
                        Numbers(std::begin(right), std::end(right)),
                        report->right.N});
    }

    std::vector<Seen> seen;
};

// The message of one division by zero.
std::string message_of(double dividend, double divisor)
{
    Recorder recorder;
    Scalar a = scalar(dividend, {});
    a /= divisor;
    return recorder.seen.size() == 1 ? recorder.seen[0].message : "";
}

}  // namespace

TEST(ScalarCarrier, OfANumberIsAConstantWithTheCountOfScalars)
{
    for (const std::size_t n : TANGENTS) {
        // Only the count for scalars matters.
        const TangentCounts counts(7, n);
        const Scalar a(-2.5);
        EXPECT_EQ(n, a.N);
        EXPECT_EQ(-2.5, a.value);
        EXPECT_EQ(bits_of(Numbers(n, 0.0)), bits_of(a.derivatives));
    }
}

TEST(ScalarCarrier, OfANonFiniteNumberHasZeroTangents)
{
    // Unlike vectors and matrices: the start value of an objective is NaN with tangents of zero.
    const TangentCounts counts(2);
    for (const double number : {INF, -INF, QUIET_NAN}) {
        const Scalar a(number);
        EXPECT_TRUE(same(number, a.value));
        EXPECT_EQ(bits_of(Numbers(2, 0.0)), bits_of(a.derivatives));
    }
}

TEST(ScalarCarrier, AddsValuesAndTangents)
{
    Scalar a = scalar(1.5, {1, -2, INF});
    a += scalar(-4.0, {10, 20, -INF});
    expect_scalar(a, -2.5, {11, 18, QUIET_NAN});

    Scalar none = scalar(1.5, {});
    none += scalar(2.0, {});
    expect_scalar(none, 3.5, {});
}

TEST(ScalarCarrier, MultipliesByANumber)
{
    Scalar a = scalar(1.5, {1, -2, -0.0});
    a *= -2.0;
    expect_scalar(a, -3.0, {-2, 4, 0.0});
    a *= INF;
    expect_scalar(a, -INF, {-INF, INF, QUIET_NAN});
}

TEST(ScalarCarrier, DividesTheValueAndEveryTangentByANumber)
{
    Recorder recorder;
    for (const std::size_t n : TANGENTS) {
        Random random(n);
        const Numbers derivatives = random.list(n);
        Scalar a = scalar(2.0, derivatives);
        a /= -0.3;
        Numbers quotients;
        for (const double d : derivatives) quotients.push_back(d / -0.3);
        expect_scalar(a, 2.0 / -0.3, quotients);
    }
    Scalar b = scalar(2.0, {1.0});
    b /= INF;
    expect_scalar(b, 0.0, {0.0});
    // The smallest divisor that is not zero.
    Scalar c = scalar(0.0, {0.0});
    c /= std::numeric_limits<double>::denorm_min();
    expect_scalar(c, 0.0, {0.0});
    EXPECT_EQ(0u, recorder.seen.size());
}

TEST(PoleDivision, ByZeroIsReportedAndThenCarriedOut)
{
    for (const std::size_t n : TANGENTS) {
        const TangentCounts counts(9, n);
        Recorder recorder;
        Scalar a = scalar(3.5, Numbers(n, -2.0));
        a /= 0.0;
        ASSERT_EQ(1u, recorder.seen.size());
        const Seen& seen = recorder.seen[0];
        EXPECT_EQ(
            "ad.h:269: POLE_DIVISION_C: non differentiable function division at point (3.5, 0)",
            seen.message);
        EXPECT_EQ("ad.h", seen.file);
        EXPECT_EQ(269, seen.line);
        EXPECT_EQ(12, seen.category);
        EXPECT_EQ(yafad::POLE_DIVISION_C, seen.category);
        // Result and left operand are both the dividend, before it is divided.
        EXPECT_EQ(&a, seen.result);
        EXPECT_EQ(&a, seen.left);
        EXPECT_EQ(3.5, seen.left_value);
        // The right operand is a constant made of the divisor.
        EXPECT_EQ(bits(0.0), bits(seen.right_value));
        EXPECT_EQ(n, seen.right_N);
        EXPECT_EQ(bits_of(Numbers(n, 0.0)), bits_of(seen.right_derivatives));
        expect_scalar(a, INF, Numbers(n, -INF));
    }
}

TEST(PoleDivision, ByMinusZeroIsReportedWithItsSign)
{
    Recorder recorder;
    Scalar a = scalar(3.5, {-2.0});
    a /= -0.0;
    ASSERT_EQ(1u, recorder.seen.size());
    EXPECT_EQ("ad.h:269: POLE_DIVISION_C: non differentiable function division at point (3.5, -0)",
              recorder.seen[0].message);
    EXPECT_TRUE(is_negative_zero(recorder.seen[0].right_value));
    expect_scalar(a, -INF, {INF});
}

TEST(PoleDivision, ByNanIsNotReported)
{
    Recorder recorder;
    Scalar a = scalar(3.5, {-2.0});
    a /= QUIET_NAN;
    EXPECT_EQ(0u, recorder.seen.size());
    expect_scalar(a, QUIET_NAN, {QUIET_NAN});
}

TEST(PoleDivision, OfZeroOrNanIsReportedLikeAnyOther)
{
    Recorder recorder;
    Scalar zero = scalar(0.0, {1.0}), nan = scalar(QUIET_NAN, {0.0});
    zero /= 0.0;
    nan /= 0.0;
    EXPECT_EQ(2u, recorder.seen.size());
    expect_scalar(zero, QUIET_NAN, {INF});
    expect_scalar(nan, QUIET_NAN, {QUIET_NAN});
}

TEST(PoleDivision, IsReportedEveryTime)
{
    Recorder recorder;
    for (int i = 0; i < 3; ++i) {
        Scalar a = scalar(1.0, {});
        a /= 0.0;
    }
    EXPECT_EQ(3u, recorder.seen.size());
}

TEST(PoleDivision, WritesThePointWithSixDigits)
{
    const std::string start =
        "ad.h:269: POLE_DIVISION_C: non differentiable function division at point (";
    EXPECT_EQ(start + "0, 0)", message_of(0.0, 0.0));
    EXPECT_EQ(start + "-0, -0)", message_of(-0.0, -0.0));
    EXPECT_EQ(start + "0.333333, 0)", message_of(1.0 / 3.0, 0.0));
    EXPECT_EQ(start + "1.23457e+06, 0)", message_of(1234567.0, 0.0));
    EXPECT_EQ(start + "123457, 0)", message_of(123456.7, 0.0));
    EXPECT_EQ(start + "1e-07, 0)", message_of(1e-7, 0.0));
    EXPECT_EQ(start + "inf, 0)", message_of(INF, 0.0));
}

namespace {

struct Commas : std::numpunct<char> {
    char do_decimal_point() const override { return ','; }

    char do_thousands_sep() const override { return '.'; }

    std::string do_grouping() const override { return "\3"; }
};

}  // namespace

TEST(PoleDivision, IsWrittenInTheClassicLocale)
{
    const std::locale before = std::locale::global(std::locale(std::locale(), new Commas));
    std::cout.precision(15);
    std::cerr.precision(15);
    const std::string large = message_of(123456.5, -0.0), small = message_of(3.5, 0.0);
    std::locale::global(before);
    std::cout.precision(6);
    std::cerr.precision(6);
    // 123,456.5 is as close to 123456 as to 123457: ties to even.
    EXPECT_EQ(
        "ad.h:269: POLE_DIVISION_C: non differentiable function division at point (123456, -0)",
        large);
    EXPECT_EQ("ad.h:269: POLE_DIVISION_C: non differentiable function division at point (3.5, 0)",
              small);
}

TEST(PoleDivision, GoesToStandardErrorWithoutAHandler)
{
    ASSERT_EQ(nullptr, yafad::ErrorHandler::getHandler());
    Scalar a = scalar(3.5, {1.0});
    Capture err = Capture::error(), out = Capture::output();
    a /= 0.0;
    EXPECT_EQ("ad.h:269: POLE_DIVISION_C: non differentiable function division at point (3.5, 0)\n",
              err.text());
    EXPECT_EQ("", out.text());
    // And the division goes on.
    expect_scalar(a, INF, {INF});
}

TEST(PoleDivision, GoesToTheHandlerOnly)
{
    Recorder recorder;
    Scalar a = scalar(3.5, {1.0});
    Capture err = Capture::error();
    a /= 0.0;
    EXPECT_EQ("", err.text());
    EXPECT_EQ(1u, recorder.seen.size());
}

TEST(PoleDivision, LetsAnExceptionOfTheHandlerThrough)
{
    // The handler alone decides; the dividend is then as it was.
    struct Thrower : yafad::ErrorHandler {
        void report(yafad::Error& error) override { throw std::runtime_error(error.message); }
    } thrower;

    yafad::ErrorHandler::getHandler() = &thrower;
    Scalar a = scalar(3.5, {1.0});
    EXPECT_THROW(a /= 0.0, std::runtime_error);
    yafad::ErrorHandler::getHandler() = nullptr;
    expect_scalar(a, 3.5, {1.0});
}
