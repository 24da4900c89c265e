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
#include "kernels/one_lane.h"
#include "kernels/scalar_lane.h"
#include "support/accuracy.h"
#include "support/guarded.h"
#include "support/instruction_sets.h"
#include "support/random.h"

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

// What a loop gives for an element, up to three doubles, and the exceptions that it raises.
struct Outcome {
    double first = 0.0, second = 0.0, third = 0.0;
    int flags = 0;
};

// The tangent or the cotangent that hard points are met with.
constexpr double DX = -0.75, YBAR = 1.5, DYBAR = 0.5;

// What one loop gives at a point in that place among n others, and what the scalar formula gives.
struct LoopAtAPoint {
    const char* name;
    std::function<Outcome(const Numbers& x, std::size_t place)> loop;
    std::function<Outcome(double x)> formula;
};

template <class F>
std::vector<LoopAtAPoint> loops_of(const ElementKernels& kernels)
{
    const auto flat = [](const Numbers& x) {
        return SideBySide{1, x.size(), 1, x.size(), x.size()};
    };
    std::vector<LoopAtAPoint> loops;
    loops.push_back({"value",
                     [&kernels](const Numbers& x, std::size_t place) {
                         Numbers y(x.size());
                         const int flags =
                             raised([&] { value(kernels, x.data(), y.data(), x.size()); });
                         return Outcome{y[place], 0.0, 0.0, flags};
                     },
                     [](double x) {
                         Outcome o;
                         o.flags = raised([&] { o.first = scalar_value<F>(x); });
                         return o;
                     }});
    loops.push_back({"vjp",
                     [&kernels](const Numbers& x, std::size_t place) {
                         Numbers ybar(x.size(), YBAR), xbar(x.size());
                         const int flags = raised(
                             [&] { vjp(kernels, x.data(), ybar.data(), xbar.data(), x.size()); });
                         return Outcome{xbar[place], 0.0, 0.0, flags};
                     },
                     [](double x) {
                         Outcome o;
                         o.flags = raised([&] { o.first = scalar_vjp<F>(x, YBAR); });
                         return o;
                     }});
    if constexpr (F::IS_SMOOTH) {
        using L = ScalarLane;
        loops.push_back({"value_term",
                         [&kernels](const Numbers& x, std::size_t place) {
                             const Numbers saved = saved_of(kernels, x.data(), x.size());
                             Numbers y(x.size()), term(x.size());
                             const int flags = raised([&] {
                                 kernels.value_term(
                                     x.data(), saved.data(), y.data(), term.data(), x.size());
                             });
                             return Outcome{y[place], term[place], 0.0, flags};
                         },
                         [](double x) {
                             Outcome o;
                             const double saved = scalar_saved<F>(x);
                             o.flags = raised([&] {
                                 const auto t = F::template value_term<L>(x, saved);
                                 o.first = t.value, o.second = t.term;
                             });
                             return o;
                         }});
        loops.push_back(
            {"tangent",
             [&kernels, flat](const Numbers& x, std::size_t place) {
                 const Numbers saved = saved_of(kernels, x.data(), x.size());
                 Numbers y(x.size()), term(x.size()), dx(x.size(), DX), dy(x.size());
                 kernels.value_term(x.data(), saved.data(), y.data(), term.data(), x.size());
                 const int flags = raised([&] {
                     kernels.tangent(x.data(), term.data(), dx.data(), dy.data(), flat(x));
                 });
                 return Outcome{dy[place], 0.0, 0.0, flags};
             },
             [](double x) {
                 Outcome o;
                 const auto t = F::template value_term<L>(x, scalar_saved<F>(x));
                 o.flags = raised([&] { o.first = F::template tangent<L>(x, t.term, DX); });
                 return o;
             }});
        loops.push_back({"vjp_terms",
                         [&kernels](const Numbers& x, std::size_t place) {
                             const Numbers saved = saved_of(kernels, x.data(), x.size());
                             Numbers ybar(x.size(), YBAR), xbar(x.size()), term(x.size()),
                                 last(x.size());
                             const int flags = raised([&] {
                                 kernels.vjp_terms(x.data(),
                                                   saved.data(),
                                                   ybar.data(),
                                                   xbar.data(),
                                                   term.data(),
                                                   last.data(),
                                                   x.size());
                             });
                             return Outcome{xbar[place], term[place], last[place], flags};
                         },
                         [](double x) {
                             Outcome o;
                             const double saved = scalar_saved<F>(x);
                             o.flags = raised([&] {
                                 const auto t = F::template vjp_terms<L>(x, saved, YBAR);
                                 o.first = t.vjp, o.second = t.term, o.third = t.ybar_term;
                             });
                             return o;
                         }});
        loops.push_back({"vjp_tangent",
                         [&kernels, flat](const Numbers& x, std::size_t place) {
                             const Numbers saved = saved_of(kernels, x.data(), x.size());
                             Numbers ybar(x.size(), YBAR), dybar(x.size(), DYBAR), dx(x.size(), DX);
                             Numbers xbar(x.size()), term(x.size()), last(x.size());
                             kernels.vjp_terms(x.data(),
                                               saved.data(),
                                               ybar.data(),
                                               xbar.data(),
                                               term.data(),
                                               last.data(),
                                               x.size());
                             const int flags = raised([&] {
                                 kernels.vjp_tangent(x.data(),
                                                     term.data(),
                                                     last.data(),
                                                     dybar.data(),
                                                     dx.data(),
                                                     xbar.data(),
                                                     flat(x));
                             });
                             return Outcome{xbar[place], 0.0, 0.0, flags};
                         },
                         [](double x) {
                             Outcome o;
                             const auto t = F::template vjp_terms<L>(x, scalar_saved<F>(x), YBAR);
                             o.flags = raised([&] {
                                 o.first =
                                     F::template vjp_tangent<L>(x, t.term, DYBAR, t.ybar_term, DX);
                             });
                             return o;
                         }});
    }
    return loops;
}

// Every loop of one function at every hard point, in every place of lists of every length beside harmless neighbours: the scalar
// formula's results and the scalar formula's exceptions.
template <class F>
void expect_scalar_behaviour(const ElementKernels& kernels)
{
    Numbers points = hard_points();
    points.push_back(std::numeric_limits<double>::signaling_NaN());
    for (const LoopAtAPoint& tested : loops_of<F>(kernels)) {
        for (const double point : points) {
            SCOPED_TRACE(testing::Message() << tested.name << " at " << point);
            const Outcome expected = tested.formula(point);
            for (std::size_t n = 1; n <= 33; ++n) {
                Numbers x(n, 0.25);
                for (std::size_t place = 0; place < n; ++place) {
                    x[place] = point;
                    const Outcome found = tested.loop(x, place);
                    x[place] = 0.25;
                    ASSERT_EQ(expected.flags, found.flags) << place << " of " << n;
                    ASSERT_TRUE(same_or_close(found.first, expected.first, 8))
                        << found.first << " " << expected.first;
                    ASSERT_TRUE(same_or_close(found.second, expected.second, 8))
                        << found.second << " " << expected.second;
                    ASSERT_TRUE(same_or_close(found.third, expected.third, 8))
                        << found.third << " " << expected.third;
                }
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

// Also where the slope is 1 and the product is the cotangent itself.
TEST_P(InstructionSets, RaiseInvalidForASignalingCotangent)
{
    const double signaling = std::numeric_limits<double>::signaling_NaN();
    for (const double x : {-1.0, 0.5, 299.0, 300.0, 1e10}) {
        for (const ElementKernels* smooth : {&element_kernels<Atan>(k),
                                             &element_kernels<Softplus>(k),
                                             &element_kernels<LogDnorm>(k)}) {
            const Numbers points(5, x), ybar(5, signaling);
            Numbers xbar(5);
            EXPECT_EQ(FE_INVALID,
                      raised([&] { vjp(*smooth, points.data(), ybar.data(), xbar.data(), 5); }))
                << x;
        }
    }
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

// Results may take the place of what they are formed from, in lanes and in the doubles that lanes leave to the scalar function.
TEST_P(InstructionSets, WorkInPlace)
{
    Numbers x = hard_points();
    Random random(17);
    while (x.size() < 199) x.push_back(random.uniform(-5.0, 5.0));
    const std::size_t n = x.size();
    Numbers other(n), third(n);
    for (double& number : other) number = random.uniform(-1.0, 1.0);
    for (double& number : third) number = random.uniform(-1.0, 1.0);
    const VEMKN::SideBySide flat{1, n, 1, n, n};
    const auto same = [&](const Numbers& expected, const Numbers& found) {
        EXPECT_EQ(0, std::memcmp(expected.data(), found.data(), n * sizeof(double)));
    };
    const auto all = [&](const ElementKernels& of) {
        const Numbers saved = saved_of(of, x.data(), n);
        Numbers expected(n);

        // run(result, x, saved, other): with each of the three as the place of the result
        const auto in_each_place = [&](const auto& run) {
            run(expected.data(), x.data(), saved.data(), other.data());
            Numbers place = x;
            run(place.data(), place.data(), saved.data(), other.data());
            same(expected, place);
            place = saved;
            run(place.data(), x.data(), place.data(), other.data());
            same(expected, place);
            place = other;
            run(place.data(), x.data(), saved.data(), place.data());
            same(expected, place);
        };
        in_each_place([&](double* y, const double* of_x, const double* of_saved, const double*) {
            of.value(of_x, of_saved, y, n);
        });
        in_each_place(
            [&](double* y, const double* of_x, const double* of_saved, const double* ybar) {
                of.vjp(of_x, of_saved, ybar, y, n);
            });
        in_each_place(
            [&](double* y, const double* of_x, const double* of_saved, const double* ybar) {
                of.vjp_each(of_x, of_saved, ybar, y, flat);
            });
        if (of.tangent == nullptr) return;
        in_each_place([&](double* y, const double* of_x, const double* term, const double* dx) {
            of.tangent(of_x, term, dx, y, flat);
        });
        in_each_place([&](double* y, const double* of_x, const double* dx, const double* dybar) {
            of.vjp_tangent(of_x, third.data(), third.data(), dybar, dx, y, flat);
        });
    };
    all(element_kernels<Id>(k));
    all(element_kernels<Relu>(k));
    all(element_kernels<Atan>(k));
    all(element_kernels<Softplus>(k));
    all(element_kernels<LogDnorm>(k));
}

// With traps armed, as in a call: what raises nothing by the formula ends no process.
TEST_P(InstructionSets, RunWithTrapsArmedWhereTheFormulaRaisesNothing)
{
    const auto run_all = [&](const ElementKernels& of, const Numbers& x) {
        for (std::size_t n = 1; n <= std::min<std::size_t>(33, x.size()); ++n) {
            Numbers y(n), xbar(n);
            const Numbers ybar(n, 0.5);
            feenableexcept(TRAPS);
            value(of, x.data(), y.data(), n);
            vjp(of, x.data(), ybar.data(), xbar.data(), n);
            fedisableexcept(TRAPS);
        }
    };
    const auto run_quiet_points = [&](auto f) {
        using F = decltype(f);
        Numbers quiet;
        for (const double x : hard_points()) {
            double results[2];
            const int raises = raised([&] {
                results[0] = scalar_value<F>(x);
                results[1] = F::template vjp<ScalarLane>(x, scalar_saved<F>(x), 0.5);
                asm volatile("" : : "m"(results));  // or they are never formed
            });
            if (raises == 0) quiet.push_back(x);
        }
        ASSERT_GT(quiet.size(), 33u);
        for (std::size_t turn = 0; turn < quiet.size(); ++turn) {
            run_all(element_kernels<F>(k), quiet);
            std::rotate(quiet.begin(), quiet.begin() + 1, quiet.end());
        }
    };
    std::feclearexcept(FE_ALL_EXCEPT);
    run_quiet_points(Id());
    run_quiet_points(Relu());
    run_quiet_points(Atan());
    run_quiet_points(Softplus());
    run_quiet_points(LogDnorm());
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

// With fused multiply-adds or without.
TEST_P(InstructionSets, GiveTheBitsOfOneDoubleAtATime)
{
    const Kernels& one =
        is_fused(GetParam()) ? one_lane_kernels() : kernels_of(INSTRUCTION_SETS[0]);
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
        const auto wide = all(a), narrow = all(b);
        for (std::size_t r = 0; r < wide.size(); ++r) {
            for (std::size_t i = 0; i < n; ++i) {
                const bool both_nan = std::isnan(wide[r][i]) && std::isnan(narrow[r][i]);
                ASSERT_TRUE(both_nan || bits_of(wide[r][i]) == bits_of(narrow[r][i]))
                    << "result " << r << " at " << x[i] << ": " << wide[r][i] << ", "
                    << narrow[r][i];
            }
        }
    };
    expect_same(element_kernels<Id>(k), element_kernels<Id>(one));
    expect_same(element_kernels<Relu>(k), element_kernels<Relu>(one));
    expect_same(element_kernels<Atan>(k), element_kernels<Atan>(one));
    expect_same(element_kernels<Softplus>(k), element_kernels<Softplus>(one));
    expect_same(element_kernels<LogDnorm>(k), element_kernels<LogDnorm>(one));
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

TEST_P(InstructionSets, AddColumnSumsOfPartsOneAfterTheOther)
{
    Random random(22);
    for (const std::size_t cols : {1u, 3u, 8u, 13u, 40u, 71u}) {
        for (const std::size_t rows : {1u, 2u, 9u, 50u}) {
            for (const std::size_t part : {1u, 2u, 8u, 50u}) {
                const std::size_t pitch = cols + rows % 2;
                const Numbers a = random.list(rows * pitch);
                Numbers sums = random.list(cols), expected = sums;
                for (std::size_t first = 0; first < rows; first += part) {
                    const std::size_t n = std::min(part, rows - first);
                    for (std::size_t c = 0; c < cols; ++c) {
                        double sum = a[(first + n - 1) * pitch + c];
                        for (std::size_t r = n - 1; r-- > 0;) sum += a[(first + r) * pitch + c];
                        expected[c] += sum;
                    }
                }
                k.add_column_sums({a.data(), rows, cols, pitch}, part, sums.data());
                EXPECT_EQ(expected, sums) << rows << " x " << cols << ", parts of " << part;
            }
        }
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

// An array that ends where a page begins that nobody may touch, or begins where one ends; what does not belong to it raises invalid
// for whoever computes with it.
TEST_P(InstructionSets, KeepToTheirArrays)
{
    std::mt19937_64 engine(13);
    std::uniform_real_distribution<double> draw(-3.0, 3.0);
    const auto any = [&] { return draw(engine); };
    for (const bool at_the_end : {false, true}) {
        for (std::size_t n = 1; n <= 40; ++n) {
            SCOPED_TRACE(testing::Message() << n << (at_the_end ? " at the end" : " at the start"));
            const auto array = [&](Guarded& of) {
                of.fill(any);
                return of.data();
            };
            Guarded rooms[] = {{1, n, Layout::rows, at_the_end},
                               {1, n, Layout::rows, at_the_end},
                               {1, n, Layout::rows, at_the_end},
                               {1, n, Layout::rows, at_the_end},
                               {1, n, Layout::rows, at_the_end},
                               {1, n, Layout::rows, at_the_end},
                               {1, n, Layout::rows, at_the_end}};
            double* const x = array(rooms[0]);
            double* const saved = array(rooms[1]);
            double* const dx = array(rooms[2]);
            double* const ybar = array(rooms[3]);
            double* const y = array(rooms[4]);
            double* const term = array(rooms[5]);
            double* const last = array(rooms[6]);
            const SideBySide flat{1, n, 1, n, n};
            const auto run = [&](const ElementKernels& of, bool smooth) {
                if (of.saved != nullptr) of.saved(x, saved, n);
                of.value(x, saved, y, n);
                of.vjp(x, saved, ybar, y, n);
                of.vjp_each(x, saved, ybar, y, flat);
                if (!smooth) return;
                of.value_term(x, saved, y, term, n);
                of.tangent(x, term, dx, y, flat);
                of.vjp_terms(x, saved, ybar, y, term, last, n);
                of.vjp_tangent(x, term, last, ybar, dx, y, flat);
            };
            EXPECT_EQ(0, raised([&] {
                          run(element_kernels<Id>(k), false);
                          run(element_kernels<Relu>(k), false);
                          run(element_kernels<Atan>(k), true);
                          run(element_kernels<Softplus>(k), true);
                          run(element_kernels<LogDnorm>(k), true);
                          k.add(x, y, n);
                          k.subtract(x, y, n);
                          EXPECT_TRUE(k.all_finite(x, n));
                      }));
        }
    }
}

TEST_P(InstructionSets, KeepToTheRowsOfTheirMatrices)
{
    std::mt19937_64 engine(14);
    std::uniform_real_distribution<double> draw(-3.0, 3.0);
    const auto any = [&] { return draw(engine); };
    for (const bool at_the_end : {false, true}) {
        for (const Layout layout : {Layout::rows, Layout::rows_apart}) {
            for (const std::size_t cols : {1u, 2u, 3u, 5u, 8u, 9u, 17u, 33u, 70u}) {
                for (const std::size_t rows : {1u, 2u, 5u, 9u}) {
                    SCOPED_TRACE(testing::Message() << rows << " x " << cols);
                    Guarded of_rows(1, cols, Layout::rows, at_the_end);
                    Guarded matrix(rows, cols, layout, at_the_end);
                    of_rows.fill(any);
                    matrix.fill(any);
                    EXPECT_EQ(0, raised([&] {
                                  k.add_to_rows(of_rows.data(),
                                                {matrix.data(), rows, cols, matrix.row()});
                                  for (const bool go_on : {false, true}) {
                                      k.sum_columns({matrix.data(), rows, cols, matrix.row()},
                                                    of_rows.data(),
                                                    go_on);
                                  }
                                  k.add_column_sums({matrix.data(), rows, cols, matrix.row()},
                                                    std::min<std::size_t>(rows, 2),
                                                    of_rows.data());
                              }));
                    // Three derivatives of a matrix side by side.
                    Guarded x(rows, cols, Layout::rows, at_the_end);
                    Guarded term(rows, cols, Layout::rows, at_the_end);
                    Guarded curvature(rows, cols, Layout::rows, at_the_end);
                    Guarded dx(rows, 3 * cols, layout, at_the_end);
                    Guarded dy(rows, 3 * cols, layout, at_the_end);
                    for (Guarded* const all : {&x, &term, &curvature, &dx, &dy}) all->fill(any);
                    const SideBySide shape{rows, cols, 3, cols, dx.row()};
                    const auto run = [&](const ElementKernels& of, bool smooth) {
                        of.vjp_each(x.data(), x.data(), dx.data(), dy.data(), shape);
                        if (!smooth) return;
                        of.tangent(x.data(), term.data(), dx.data(), dy.data(), shape);
                        of.vjp_tangent(x.data(),
                                       term.data(),
                                       curvature.data(),
                                       dy.data(),
                                       dx.data(),
                                       dy.data(),
                                       shape);
                    };
                    EXPECT_EQ(0, raised([&] {
                                  run(element_kernels<Id>(k), false);
                                  run(element_kernels<Relu>(k), false);
                                  run(element_kernels<Atan>(k), true);
                                  run(element_kernels<LogDnorm>(k), true);
                              }));
                }
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(EveryInstructionSet,
                         InstructionSets,
                         testing::ValuesIn(available_instruction_sets()),
                         [](const auto& set) { return std::string(kernels_of(set.param).name); });
