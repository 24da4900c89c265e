#include <sys/mman.h>

#include <array>
#include <functional>
#include <type_traits>

#include "hpp/problem.h"

// The life of a network of the C++ header, its settings, and what it throws.

namespace {

const Problem problem;

static_assert(!std::is_copy_constructible_v<vemkn::Network>);
static_assert(!std::is_copy_assignable_v<vemkn::Network>);
static_assert(std::is_nothrow_move_constructible_v<vemkn::Network>);
static_assert(std::is_nothrow_move_assignable_v<vemkn::Network>);

TEST(HppNetwork, KnowsItsShapes)
{
    const vemkn::Network net = problem.network();
    EXPECT_EQ(3u, net.numin());
    EXPECT_EQ(2u, net.numout());
    EXPECT_EQ(problem.nw(), net.numel());
    EXPECT_EQ(2u, vemkn::Network("5 1 2 1 32 2 3 id sum").numin()) << "the first layer is narrower";
    EXPECT_EQ(2u, vemkn::Network("2 1 2 1 32 5 3 id sum").numin()) << "the first layer is wider";
}

TEST(HppNetwork, AWiderFirstLayerTakesZerosForTheMissingColumns)
{
    const plain::Network truth{.numin = 2, .numout = 1, .sizes = {4, 3}, .activation = "atan"};
    const vemkn::Network net(truth.text());
    const Numbers w = Random(3).list(truth.numel()), x = Random(4).list(6);
    expect_close(net.compute(w, x).values, truth.outputs(w, x, 3, 2), 1e-14);
}

TEST(HppNetwork, ThrowsForATextThatDescribesNone)
{
    for (const char* const text : {"",
                                   "nonsense",
                                   "1 1 2 1 32",
                                   "1 1 2 1 32 1",
                                   "1 1 2 1 32 1 4",
                                   "1 1 2 1 32 1 4 softplus",
                                   "1 1 2 1 32 1 4 softplus somenorm",
                                   "1 1 1 1 32 1 softplus sum",
                                   "0 1 2 1 32 1 4 softplus sum",
                                   "1 1 2 1 32 1 0 softplus sum",
                                   "1 1 2 1 32 0 4 softplus sum",
                                   "2 1 2 3 32 2 4 softplus sum",
                                   "1 1 2 1 32 1 4000000000 softplus sum",
                                   "1 4000000000 2 1 32 4000000000 4000000000 softplus sum"}) {
        EXPECT_THROW(vemkn::Network{text}, std::invalid_argument) << text;
    }
    EXPECT_THROW(vemkn::Network{std::string_view()}, std::invalid_argument);
    EXPECT_THROW(vemkn::Network(vemkn::Description{}), std::invalid_argument);
    EXPECT_THROW(vemkn::Network({.sizes = {1, 0}}), std::invalid_argument);
    EXPECT_NO_THROW(vemkn::Network("1 1 2 1 32 1 4 softplus sum"));
}

TEST(HppNetwork, SaysWhatIsWrongWithAText)
{
    try {
        const vemkn::Network net("2 1 3 1 32 2 5 relu sum");
        FAIL() << "no exception";
    } catch (const std::invalid_argument& error) {
        EXPECT_STREQ(
            "vemkn: \"2 1 3 1 32 2 5 relu sum\" describes no network: "
            "nlayers announces 3 sizes, but \"relu\" stands in the place of size 3",
            error.what());
    }
}

TEST(HppNetwork, ReadsNoMoreThanTheViewHolds)
{
    const std::string_view text = "1 1 2 1 32 1 2 id sum_log_dnorm_fat";
    const vemkn::Network net(text.substr(0, text.find('_')));
    EXPECT_EQ(-2.0, net.objective(Numbers(7), Numbers{1}, Numbers{2})) << "the norm is sum";
}

TEST(HppNetwork, KeepsItsWeightsAndLeavesThemToItsOwner)
{
    vemkn::Network net = problem.network();
    EXPECT_EQ(Numbers(problem.nw()), net.weights());
    net.set_weights(problem.w);
    EXPECT_EQ(problem.w, net.weights());
    net.value_and_gradient(Numbers(problem.nw(), 0.5), problem.x, problem.y);
    EXPECT_EQ(problem.w, net.weights());
}

TEST(HppNetwork, MovesWithItsWeightsAndLeavesNothingBehind)
{
    vemkn::Network first = problem.network();
    first.set_weights(problem.w);
    VEMKNInfo* const handle = first.handle();
    vemkn::Network second = std::move(first);
    EXPECT_EQ(handle, second.handle());
    EXPECT_EQ(problem.w, second.weights());

    // NOLINTBEGIN(bugprone-use-after-move, clang-analyzer-cplusplus.Move): what is tested
    EXPECT_THROW(first.handle(), std::logic_error);
    EXPECT_THROW(first.numin(), std::logic_error);
    EXPECT_THROW(first.weights(), std::logic_error);
    EXPECT_THROW(first.set_threads(1), std::logic_error);
    EXPECT_THROW(first.set_quiet(true), std::logic_error);
    EXPECT_THROW(first.compute(problem.w, problem.x), std::logic_error);
    EXPECT_THROW(first.objective(problem.w, problem.x, problem.y), std::logic_error);
    EXPECT_THROW(first.value_and_gradient({}, {}, {}), std::logic_error);

    first = vemkn::Network("1 1 2 1 32 1 2 id sum");
    EXPECT_EQ(7u, first.numel());
    second = std::move(first);
    EXPECT_EQ(7u, second.numel());
    // NOLINTEND(bugprone-use-after-move, clang-analyzer-cplusplus.Move)
}

TEST(HppNetwork, RefusesSettingsOutOfRange)
{
    vemkn::Network net = problem.network();
    EXPECT_THROW(net.set_threads(0), std::invalid_argument);
    EXPECT_THROW(net.set_threads(100000), std::invalid_argument);
    EXPECT_THROW(net.set_batch(0), std::invalid_argument);
    EXPECT_THROW(net.set_batch(-1), std::invalid_argument);
    EXPECT_THROW(net.set_weights(Numbers(problem.nw() - 1)), std::invalid_argument);
    EXPECT_THROW(net.set_weights({}), std::invalid_argument);
}

// Threads and slices decide the last bits, in the same manner through either interface.
TEST(HppNetwork, PassesThreadsAndSlicesOnToTheHandle)
{
    const plain::Network shape{.numin = 2, .numout = 1, .sizes = {2, 5}, .activation = "atan"};
    Random random(8);
    const Numbers w = random.list(shape.numel()), x = random.list(600), y = random.list(300);
    const auto reference = [&](unsigned threads, int batch) {
        const vemkn::Network net(shape.text());
        vemk_setpar(net.handle(), threads, batch);
        return bits_of(net.value_and_gradient(w, x, y).gradient);
    };
    vemkn::Network net(shape.text());
    EXPECT_EQ(reference(1, 32), bits_of(net.value_and_gradient(w, x, y).gradient));
    net.set_batch(7);
    EXPECT_EQ(reference(1, 7), bits_of(net.value_and_gradient(w, x, y).gradient));
    net.set_threads(3);
    EXPECT_EQ(reference(3, 7), bits_of(net.value_and_gradient(w, x, y).gradient));
    EXPECT_NE(reference(1, 32), reference(3, 7)) << "the data do not distinguish the settings";
}

using Arguments = std::array<Numbers, 3>;  // weights, inputs, targets

// Every computing member function on these arguments, with one tangent or cotangent that fits.
std::vector<std::pair<const char*, std::function<void(const vemkn::Network&, const Arguments&)>>>
computing_functions()
{
    static const Numbers v(problem.nw(), 0.1), u(problem.results(), 0.1);
    using N = const vemkn::Network&;
    using A = const Arguments&;
    return {
        {"compute", [](N net, A a) { net.compute(a[0], a[1]); }},
        {"residual", [](N net, A a) { net.residual(a[0], a[1], a[2]); }},
        {"objective", [](N net, A a) { net.objective(a[0], a[1], a[2]); }},
        {"objective_each", [](N net, A a) { net.objective_each(a[0], a[1], a[2]); }},
        {"value_and_gradient", [](N net, A a) { net.value_and_gradient(a[0], a[1], a[2]); }},
        {"hessian_product", [](N net, A a) { net.hessian_product(a[0], v, a[1], a[2]); }},
        {"jacobian_product", [](N net, A a) { net.jacobian_product(a[0], v, a[1], a[2]); }},
        {"product_jacobian", [](N net, A a) { net.product_jacobian(a[0], u, a[1], a[2]); }},
    };
}

// One number too many, one too few, none, and a whole row too many or too few.
TEST(HppShapes, EveryCallThrowsForEveryWrongLength)
{
    const vemkn::Network net = problem.network();
    const Arguments good = {problem.w, problem.x, problem.y};
    const std::array<std::ptrdiff_t, 3> row = {
        static_cast<std::ptrdiff_t>(problem.nw()), net.numin(), net.numout()};
    for (const auto& [name, call] : computing_functions()) {
        EXPECT_NO_THROW(call(net, good)) << name;
        const bool takes_targets = name != std::string("compute");
        for (std::size_t which = 0; which < (takes_targets ? 3u : 2u); ++which) {
            const auto length = static_cast<std::ptrdiff_t>(good[which].size());
            for (const std::ptrdiff_t wrong : {length + 1,
                                               length - 1,
                                               std::ptrdiff_t{0},
                                               length + row[which],
                                               length - row[which]}) {
                // Outputs alone take any number of whole rows.
                if (!takes_targets && which == 1 && wrong > 0 && wrong % row[which] == 0) continue;
                Arguments bad = good;
                bad[which].resize(static_cast<std::size_t>(wrong));
                EXPECT_THROW(call(net, bad), std::invalid_argument)
                    << name << ": argument " << which << " of length " << wrong;
            }
        }
        EXPECT_THROW(call(net, {problem.w, {}, {}}), std::invalid_argument) << name << ": no rows";
    }
}

TEST(HppShapes, TangentsAndCotangentsAreWholeAndAtLeastOne)
{
    const vemkn::Network net = problem.network();
    const Numbers &w = problem.w, &x = problem.x, &y = problem.y;
    for (const std::size_t n : {std::size_t{0}, problem.nw() - 1, problem.nw() + 1}) {
        for (const vemkn::Order order : ORDERS) {
            EXPECT_THROW(net.hessian_product(w, Numbers(n), x, y, order), std::invalid_argument);
            EXPECT_THROW(net.jacobian_product(w, Numbers(n), x, y, order), std::invalid_argument);
        }
    }
    for (const std::size_t n : {std::size_t{0}, problem.results() - 1, problem.results() + 1}) {
        EXPECT_THROW(net.product_jacobian(w, Numbers(n), x, y), std::invalid_argument);
    }
}

TEST(HppShapes, TheMessageSaysBothNumbers)
{
    const vemkn::Network net("2 1 2 1 32 2 5 id sum");
    try {
        net.compute(Numbers(5), Numbers(2));
        FAIL();
    } catch (const std::invalid_argument& error) {
        EXPECT_STREQ("vemkn: 5 weights, the network has 21", error.what());
    }
}

// 2^32 cotangent values that nobody may read.
TEST(HppShapes, WhatTheLibraryRefusesIsARuntimeError)
{
    constexpr std::size_t rows = 1u << 16, values = rows * rows;
    void* const area = mmap(nullptr,
                            values * sizeof(double),
                            PROT_NONE,
                            MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE,
                            -1,
                            0);
    if (area == MAP_FAILED) GTEST_SKIP() << "no room for the addresses";
    const vemkn::Network net("1 1 2 1 32 1 1 id sum");
    const std::span<const double> u(static_cast<const double*>(area), values);
    const Numbers w(4), x(rows), y(rows);
    EXPECT_THROW(net.product_jacobian(w, u, x, y), std::runtime_error);
    munmap(area, values * sizeof(double));
}

TEST(HppFinite, QuietNetworksReturnWhatIsNotFiniteWithAFlag)
{
    vemkn::Network net("1 1 2 1 32 1 1 id sum");
    net.set_quiet(true);
    const Numbers w = {0, 1e200, 0, 1e200}, x = {1}, y = {0}, v = {1, 0, 0, 0}, u = {1, 2};
    EXPECT_FALSE(net.compute(w, x).finite);
    EXPECT_EQ(INF, net.compute(w, x).values[0]);
    EXPECT_FALSE(net.residual(w, x, y).finite);
    EXPECT_EQ(INF, net.objective(w, x, y));
    EXPECT_FALSE(net.objective_each(w, x, y).finite);
    EXPECT_FALSE(net.value_and_gradient(w, x, y).finite);
    EXPECT_FALSE(net.hessian_product(w, v, x, y).finite);
    EXPECT_FALSE(net.jacobian_product(w, v, x, y).finite);
    EXPECT_FALSE(net.product_jacobian(w, u, x, y).finite);
    EXPECT_FALSE(net.product_jacobian(w, {u.data(), 1}, x, y).finite);
    const Numbers small = {0, 1, 0, 1};
    EXPECT_TRUE(net.value_and_gradient(small, x, y).finite);
}

// With traps armed the library does not look, but a NaN among the data still comes through.
TEST(HppFinite, ANanAmongTheDataIsFlaggedInAnyNetwork)
{
    const vemkn::Network net("1 1 2 1 32 1 1 id sum");
    const Numbers w = {0, 1, 0, 1}, x = {1, 2}, y = {QUIET_NAN, 0}, v = {1, 0, 0, 0}, u = {1, 1};
    EXPECT_FALSE(net.residual(w, x, y).finite);
    EXPECT_TRUE(std::isnan(net.objective(w, x, y)));
    EXPECT_FALSE(net.objective_each(w, x, y).finite);
    EXPECT_FALSE(net.value_and_gradient(w, x, y).finite);
    EXPECT_FALSE(net.hessian_product(w, v, x, y).finite);
    EXPECT_FALSE(net.jacobian_product(w, v, x, y).finite);
    EXPECT_FALSE(net.product_jacobian(w, u, x, y).finite);
    EXPECT_FALSE(net.compute(w, Numbers{QUIET_NAN}).finite);
}

}  // namespace
