#include <gtest/gtest.h>

#include <bit>
#include <cfenv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <functional>
#include <limits>
#include <random>
#include <vector>

#include "kernels/kernels.h"
#include "kernels/scalar_lane.h"
#include "support/accuracy.h"
#include "support/instruction_sets.h"

using namespace VEMKN;

namespace {

using Numbers = std::vector<double>;

constexpr double INF = std::numeric_limits<double>::infinity();
constexpr double NAN_ = std::numeric_limits<double>::quiet_NaN();
constexpr int TRAPS = FE_INVALID | FE_DIVBYZERO | FE_OVERFLOW;

// Exceptions among TRAPS that work raises.
int raised(const std::function<void()>& work)
{
    std::feclearexcept(FE_ALL_EXCEPT);
    work();
    return std::fetestexcept(TRAPS);
}

std::uint64_t bits_of(double a)
{
    return std::bit_cast<std::uint64_t>(a);
}

// The loops from x alone, one after the other as they are meant to be called.

Numbers saved_of(const ElementKernels& kernels, const double* x, std::size_t n)
{
    Numbers saved(x, x + n);
    if (kernels.saved != nullptr) kernels.saved(x, saved.data(), n);
    return saved;
}

void value(const ElementKernels& kernels, const double* x, double* y, std::size_t n)
{
    kernels.value(x, saved_of(kernels, x, n).data(), y, n);
}

void vjp(
    const ElementKernels& kernels, const double* x, const double* ybar, double* xbar, std::size_t n)
{
    kernels.vjp(x, saved_of(kernels, x, n).data(), ybar, xbar, n);
}

class InstructionSets : public testing::TestWithParam<InstructionSet> {
protected:
    const Kernels& k = kernels_of(GetParam());
};

// Points on which branches, ranges of the vector functions and special values turn.
Numbers hard_points()
{
    Numbers points;
    for (const double a : {0.0,
                           5e-324,
                           1e-310,
                           1e-300,
                           1e-160,
                           1e-8,
                           0.5,
                           1.0,
                           1.9999999999999998,
                           2.0,
                           2.5,
                           36.0,
                           38.0,
                           299.9,
                           0x1.2bfffffffffffp+8,
                           300.0,
                           0x1.2c00000000001p+8,
                           300.1,
                           707.9,
                           708.0,
                           708.1,
                           709.0,
                           710.0,
                           745.0,
                           746.0,
                           800.0,
                           1e10,
                           1e76,
                           1e100,
                           1.01e100,
                           1.3e154,
                           1e300,
                           1.7e308,
                           INF,
                           NAN_}) {
        points.push_back(a);
        points.push_back(-a);
    }
    return points;
}

template <class F>
double scalar_saved(double x)
{
    if constexpr (F::SAVES) {
        return F::template saved<ScalarLane>(x);
    } else {
        return x;
    }
}

template <class F>
double scalar_value(double x)
{
    return F::template value<ScalarLane>(x, scalar_saved<F>(x));
}

template <class F>
double scalar_vjp(double x, double ybar)
{
    return F::template vjp<ScalarLane>(x, scalar_saved<F>(x), ybar);
}

bool same_or_close(double a, double b, double ulps)
{
    if (std::isnan(b)) return std::isnan(a);
    if (a == b) return std::signbit(a) == std::signbit(b);
    return std::fabs(a - b) <= ulps * accuracy::ulp(b);
}

// value and vjp of one function at every hard point, in every place of lists of every length beside harmless neighbours: the scalar
// formula's value and the scalar formula's exceptions.
template <class F>
void expect_scalar_behaviour(const ElementKernels& kernels)
{
    Numbers points = hard_points();
    points.push_back(std::numeric_limits<double>::signaling_NaN());
    for (const double point : points) {
        double expected = 0.0, adjoint = 0.0;
        const int scalar_flags = raised([&] { expected = scalar_value<F>(point); });
        const int adjoint_flags = raised([&] { adjoint = scalar_vjp<F>(point, 1.5); });
        for (std::size_t n = 1; n <= 33; ++n) {
            Numbers x(n, 0.25), ybar(n, 1.5), y(n), xbar(n);
            for (std::size_t place = 0; place < n; ++place) {
                x[place] = point;
                const int flags = raised([&] { value(kernels, x.data(), y.data(), n); });
                const int vjp_flags =
                    raised([&] { vjp(kernels, x.data(), ybar.data(), xbar.data(), n); });
                x[place] = 0.25;
                ASSERT_EQ(scalar_flags, flags) << point << " at " << place << " of " << n;
                ASSERT_EQ(adjoint_flags, vjp_flags) << point << " at " << place << " of " << n;
                ASSERT_TRUE(same_or_close(y[place], expected, 8)) << y[place] << " " << expected;
                ASSERT_TRUE(same_or_close(xbar[place], adjoint, 8))
                    << xbar[place] << " " << adjoint;
            }
        }
    }
}

}  // namespace

TEST_P(InstructionSets, BehaveLikeTheScalarFormulaAtHardPoints)
{
    expect_scalar_behaviour<Id>(element_kernels<Id>(k));
    expect_scalar_behaviour<Relu>(element_kernels<Relu>(k));
    expect_scalar_behaviour<Atan>(element_kernels<Atan>(k));
    expect_scalar_behaviour<Softplus>(element_kernels<Softplus>(k));
    expect_scalar_behaviour<LogDnorm>(element_kernels<LogDnorm>(k));
}

TEST_P(InstructionSets, RaiseNothingForNumbersOfEverydaySize)
{
    std::mt19937_64 engine(7);
    std::uniform_real_distribution<double> exponent(-40.0, 8.0), sign(-1.0, 1.0);
    Numbers x(20011), ybar(x.size()), a(x.size()), b(x.size()), c(x.size());
    for (double& number : x) number = std::copysign(std::pow(10.0, exponent(engine)), sign(engine));
    for (double& number : ybar) number = sign(engine);
    for (const ElementKernels* smooth : {&element_kernels<Atan>(k),
                                         &element_kernels<Softplus>(k),
                                         &element_kernels<LogDnorm>(k)}) {
        const std::size_t n = x.size();
        EXPECT_EQ(0, raised([&] {
                      const Numbers saved = saved_of(*smooth, x.data(), n);
                      smooth->value(x.data(), saved.data(), a.data(), n);
                      smooth->vjp(x.data(), saved.data(), ybar.data(), a.data(), n);
                      const VEMKN::SideBySide flat{1, n, 1, n, n};
                      smooth->value_term(x.data(), saved.data(), a.data(), b.data(), n);
                      smooth->tangent(x.data(), b.data(), ybar.data(), c.data(), flat);
                      smooth->vjp_terms(
                          x.data(), saved.data(), ybar.data(), a.data(), b.data(), c.data(), n);
                      smooth->vjp_tangent(
                          x.data(), b.data(), c.data(), ybar.data(), ybar.data(), a.data(), flat);
                  }));
    }
}

TEST_P(InstructionSets, StayWithinTheirErrorBounds)
{
    for (const accuracy::Group<long double>& group : accuracy::groups<long double>()) {
        std::vector<double> worst(group.rows.size(), 0.0);
        accuracy::Sample<long double>(group, 200000, 12345).raise(k, worst);
        for (std::size_t r = 0; r < worst.size(); ++r) {
            EXPECT_LE(group.rows[r].bound, group.rows[r].derived);
            EXPECT_LE(worst[r], group.rows[r].bound)
                << group.name << ", " << group.rows[r].what << ", points " << group.low << " to "
                << group.high;
        }
    }
}

TEST_P(InstructionSets, GiveAnElementTheSameBitsWhereverItStands)
{
    Numbers x(100);
    std::mt19937_64 engine(3);
    std::uniform_real_distribution<double> draw(-4.0, 4.0);
    for (double& number : x) number = draw(engine);
    for (const ElementKernels* smooth : {&element_kernels<Atan>(k),
                                         &element_kernels<Softplus>(k),
                                         &element_kernels<LogDnorm>(k)}) {
        Numbers whole(100), part(100);
        value(*smooth, x.data(), whole.data(), 100);
        for (std::size_t first = 0; first < 20; ++first) {
            for (std::size_t n = 0; n < 20; ++n) {
                value(*smooth, &x[first], part.data(), n);
                EXPECT_EQ(0, std::memcmp(part.data(), &whole[first], n * sizeof(double)));
            }
        }
    }
}

// Those with fused multiply-adds among themselves, and those without.
TEST_P(InstructionSets, GiveTheBitsOfTheLeastOfTheirKind)
{
    const bool fused = GetParam() >= InstructionSet::avx2;
    const Kernels& least = kernels_of(fused ? InstructionSet::avx2 : InstructionSet::baseline);
    Numbers x = hard_points();
    std::mt19937_64 engine(11);
    std::uniform_real_distribution<double> near(-5.0, 5.0), far(-760.0, 760.0),
        exponent(-1074.0, 1023.0);
    for (int i = 0; i < 20000; ++i) {
        x.push_back(near(engine));
        x.push_back(far(engine));
        x.push_back(std::copysign(std::exp2(exponent(engine)), near(engine)));
    }
    const std::size_t n = x.size();
    Numbers ybar(n), dx(n);
    for (std::size_t i = 0; i < n; ++i) ybar[i] = near(engine), dx[i] = near(engine);
    const VEMKN::SideBySide flat{1, n, 1, n, n};
    const auto all = [&](const ElementKernels& of) {
        std::vector<Numbers> results(8, Numbers(n));
        results[0] = saved_of(of, x.data(), n);
        const double* const saved = results[0].data();
        of.value(x.data(), saved, results[1].data(), n);
        of.vjp(x.data(), saved, ybar.data(), results[2].data(), n);
        if (of.tangent == nullptr) return results;
        of.value_term(x.data(), saved, results[1].data(), results[3].data(), n);
        of.tangent(x.data(), results[3].data(), dx.data(), results[4].data(), flat);
        of.vjp_terms(x.data(),
                     saved,
                     ybar.data(),
                     results[2].data(),
                     results[5].data(),
                     results[6].data(),
                     n);
        of.vjp_tangent(x.data(),
                       results[5].data(),
                       results[6].data(),
                       ybar.data(),
                       dx.data(),
                       results[7].data(),
                       flat);
        return results;
    };
    const auto expect_same = [&](const ElementKernels& a, const ElementKernels& b) {
        const auto one = all(a), other = all(b);
        for (std::size_t r = 0; r < one.size(); ++r) {
            for (std::size_t i = 0; i < n; ++i) {
                const bool both_nan = std::isnan(one[r][i]) && std::isnan(other[r][i]);
                ASSERT_TRUE(both_nan || bits_of(one[r][i]) == bits_of(other[r][i]))
                    << "result " << r << " at " << x[i] << ": " << one[r][i] << ", " << other[r][i];
            }
        }
    };
    expect_same(element_kernels<Id>(k), element_kernels<Id>(least));
    expect_same(element_kernels<Relu>(k), element_kernels<Relu>(least));
    expect_same(element_kernels<Atan>(k), element_kernels<Atan>(least));
    expect_same(element_kernels<Softplus>(k), element_kernels<Softplus>(least));
    expect_same(element_kernels<LogDnorm>(k), element_kernels<LogDnorm>(least));
}

TEST_P(InstructionSets, GiveExactlyZeroForTheLikelihoodAtZero)
{
    const Numbers x = {0.0, -0.0, 0.0};
    Numbers y(3, 1.0);
    value(element_kernels<LogDnorm>(k), x.data(), y.data(), 3);
    EXPECT_EQ(Numbers(3, 0.0), y);
}

TEST_P(InstructionSets, SumColumnsFromTheLastRowToTheFirst)
{
    // 1e16 + 1 loses the 1, so the order shows: from the last row up the ones are lost only after 1e16 came in.
    for (const std::size_t cols : {1u, 3u, 8u, 13u, 40u, 71u}) {
        const std::size_t rows = 4;
        Numbers a(rows * cols, 1.0), sum(cols);
        for (std::size_t c = 0; c < cols; ++c) a[c] = 1e16;
        for (std::size_t c = 0; c < cols; ++c) a[3 * cols + c] = static_cast<double>(c);
        k.sum_columns({a.data(), rows, cols, cols}, sum.data(), false);
        for (std::size_t c = 0; c < cols; ++c) {
            EXPECT_EQ(((static_cast<double>(c) + 1.0) + 1.0) + 1e16, sum[c]);
        }
        // The same in two goes, the lower rows first.
        Numbers in_parts(cols);
        k.sum_columns({a.data() + 2 * cols, 2, cols, cols}, in_parts.data(), false);
        k.sum_columns({a.data(), 2, cols, cols}, in_parts.data(), true);
        EXPECT_EQ(sum, in_parts);
    }
}

// The order of operations decides the last bits, and where a tangent overflows.
TEST_P(InstructionSets, FormTangentsInTheirOrderOfOperations)
{
    std::mt19937_64 engine(5);
    std::uniform_real_distribution<double> draw(-30.0, 30.0);
    for (std::size_t n = 1; n < 40; ++n) {
        Numbers x(n), dx(n), ybar(n), dybar(n), y(n), term(n), ybar_term(n), to(n);
        for (std::size_t i = 0; i < n; ++i) {
            x[i] = draw(engine), dx[i] = draw(engine), ybar[i] = draw(engine);
            dybar[i] = draw(engine);
        }
        x[n - 1] = 300.0;
        const VEMKN::SideBySide flat{1, n, 1, n, n};
        const auto tangent = [&](const ElementKernels& of, const Numbers& saved) {
            of.value_term(x.data(), saved.data(), y.data(), term.data(), n);
            of.tangent(x.data(), term.data(), dx.data(), to.data(), flat);
        };
        const ElementKernels& softplus = element_kernels<Softplus>(k);
        const Numbers e = saved_of(softplus, x.data(), n);
        tangent(softplus, e);
        for (std::size_t i = 0; i < n; ++i) {
            EXPECT_EQ(x[i] < 300.0 ? dx[i] * e[i] / (e[i] + 1.0) : dx[i], to[i]);
        }
        const ElementKernels& atan = element_kernels<Atan>(k);
        tangent(atan, x);
        for (std::size_t i = 0; i < n; ++i) EXPECT_EQ(dx[i] / (x[i] * x[i] + 1.0), to[i]);
        atan.vjp_terms(x.data(), x.data(), ybar.data(), y.data(), term.data(), ybar_term.data(), n);
        atan.vjp_tangent(
            x.data(), term.data(), ybar_term.data(), dybar.data(), dx.data(), to.data(), flat);
        for (std::size_t i = 0; i < n; ++i) {
            const double d = x[i] * x[i] + 1.0;
            EXPECT_EQ(dybar[i] / d - ybar[i] * 2.0 * x[i] * dx[i] / d / d, to[i]);
        }
    }
}

TEST_P(InstructionSets, DoArithmeticOnEveryLength)
{
    for (std::size_t n = 0; n < 30; ++n) {
        Numbers a(n), b(n), c(n), d(n), to(n, -1.0), kept;
        for (std::size_t i = 0; i < n; ++i) {
            const auto at = static_cast<double>(i);
            a[i] = at + 0.5, b[i] = 3.0 - at, c[i] = at * at, d[i] = 0.25 * at;
        }
        const VEMKN::SideBySide flat{1, n, 1, n, n};
        element_kernels<LogDnorm>(k).tangent(d.data(), a.data(), b.data(), to.data(), flat);
        for (std::size_t i = 0; i < n; ++i) EXPECT_EQ(a[i] * b[i], to[i]);
        element_kernels<LogDnorm>(k).vjp_tangent(
            d.data(), a.data(), c.data(), b.data(), d.data(), to.data(), flat);
        for (std::size_t i = 0; i < n; ++i) EXPECT_EQ(a[i] * b[i] + c[i] * d[i], to[i]);
        kept = to;
        k.add(a.data(), to.data(), n);
        for (std::size_t i = 0; i < n; ++i) EXPECT_EQ(kept[i] + a[i], to[i]);
        kept = to;
        k.subtract(b.data(), to.data(), n);
        for (std::size_t i = 0; i < n; ++i) EXPECT_EQ(kept[i] - b[i], to[i]);
    }
}

TEST_P(InstructionSets, ReachEveryDerivativeSideBySide)
{
    for (const std::size_t cols : {1u, 2u, 5u, 8u, 10u, 16u, 31u, 63u, 64u, 65u, 100u}) {
        for (const std::size_t tangents : {0u, 1u, 2u, 7u, 8u, 9u, 70u, 600u}) {
            if (tangents * cols > 8'000) continue;
            // After every row; and after every derivative, as where these are parts of longer rows.
            for (const auto& [gap, part_gap] : {std::pair{0u, 0u}, {3u, 0u}, {0u, 2u}}) {
                SCOPED_TRACE(testing::Message()
                             << cols << " columns, " << tangents << " tangents, gaps of " << gap
                             << " and " << part_gap);
                const std::size_t rows = 3, step = cols + part_gap, pitch = tangents * step + gap;
                const VEMKN::SideBySide shape{rows, cols, tangents, step, pitch};
                Numbers x(rows * cols), slope(rows * cols), curvature(rows * cols);
                Numbers dx(rows * pitch), dybar(rows * pitch);
                for (std::size_t i = 0; i < x.size(); ++i) {
                    const auto at = static_cast<double>(i);
                    x[i] = i % 3 == 0 ? -at - 0.5 : at;
                    slope[i] = 0.5 + at, curvature[i] = 3.0 - at;
                }
                for (std::size_t i = 0; i < dx.size(); ++i) {
                    const auto at = static_cast<double>(i);
                    dx[i] = at - 7.0, dybar[i] = 0.25 * at + 1.0;
                }
                Numbers scaled(dx.size(), -1.0), selected = scaled, adjoint = scaled;
                element_kernels<LogDnorm>(k).tangent(
                    x.data(), slope.data(), dx.data(), scaled.data(), shape);
                element_kernels<Relu>(k).vjp_each(
                    x.data(), x.data(), dx.data(), selected.data(), shape);
                element_kernels<LogDnorm>(k).vjp_tangent(x.data(),
                                                         slope.data(),
                                                         curvature.data(),
                                                         dybar.data(),
                                                         dx.data(),
                                                         adjoint.data(),
                                                         shape);
                for (std::size_t r = 0; r < rows; ++r) {
                    for (std::size_t c = 0; c < pitch; ++c) {
                        const std::size_t to = r * pitch + c, of = r * cols + c % step;
                        const bool inside = c < tangents * step && c % step < cols;
                        EXPECT_EQ(inside ? slope[of] * dx[to] : -1.0, scaled[to]);
                        EXPECT_EQ(inside ? (x[of] < 0 ? 0.0 : dx[to]) : -1.0, selected[to]);
                        EXPECT_EQ(inside ? slope[of] * dybar[to] + curvature[of] * dx[to] : -1.0,
                                  adjoint[to]);
                    }
                }
            }
        }
    }
}

TEST_P(InstructionSets, AddToEveryRow)
{
    for (const std::size_t cols : {1u, 2u, 3u, 5u, 7u, 8u, 9u, 16u, 31u, 511u, 512u, 513u, 600u}) {
        for (const std::size_t rows : {0u, 1u, 2u, 3u, 8u, 13u}) {
            for (const std::size_t gap : {0u, 3u}) {
                const std::size_t pitch = cols + gap;
                Numbers a(cols), matrix(rows * pitch, 2.0);
                for (std::size_t c = 0; c < cols; ++c) a[c] = static_cast<double>(c) + 0.5;
                k.add_to_rows(a.data(), {matrix.data(), rows, cols, pitch});
                for (std::size_t r = 0; r < rows; ++r) {
                    for (std::size_t c = 0; c < pitch; ++c) {
                        EXPECT_EQ(c < cols ? 2.0 + a[c] : 2.0, matrix[r * pitch + c]);
                    }
                }
            }
        }
    }
}

TEST_P(InstructionSets, TellFiniteNumbersFromOthersQuietly)
{
    for (std::size_t n = 0; n < 20; ++n) {
        Numbers a(n, -1.7e308);
        EXPECT_TRUE(k.all_finite(a.data(), n));
        for (std::size_t i = 0; i < n; ++i) {
            for (const double odd : {INF, -INF, NAN_, -NAN_}) {
                a[i] = odd;
                bool finite = true;
                EXPECT_EQ(0, raised([&] { finite = k.all_finite(a.data(), n); }));
                EXPECT_FALSE(finite) << odd << " at " << i << " of " << n;
            }
            a[i] = 1.0;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(EveryInstructionSet,
                         InstructionSets,
                         testing::ValuesIn(available_instruction_sets()),
                         [](const auto& set) { return std::string(kernels_of(set.param).name); });
