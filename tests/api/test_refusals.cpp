#include <cblas.h>
#include <gtest/gtest.h>

#include <functional>

#include "support/calls.h"
#include "support/capture.h"
#include "support/fp_state.h"

namespace {

constexpr double UNTOUCHED = -12345.678;

const std::string GOOD = "3 2 2 1 8 3 4 softplus sum";

// Without the messages about what is wrong with the text.
Network quiet_network(const std::string& text)
{
    Capture out = Capture::output(), err = Capture::error();
    return Network(text);
}

class RefusedCall : public testing::TestWithParam<Entry> {
protected:
    const Entry& entry() const { return GetParam(); }

    // The call is refused with that reason; nothing is written, and the state of process and thread stays.
    void expect_refusal(VEMKNInfo* net,
                        const std::string& reason,
                        const std::function<void(Call&)>& change) const
    {
        Numbers w(std::max<std::size_t>(1, vemk_numel(net)), 0.5), x(64, 0.5), y(64, 0.5);
        Numbers value(1, UNTOUCHED), array(256, UNTOUCHED);
        Call c{.w = w.data(),
               .nw = static_cast<unsigned>(vemk_numel(net)),
               .x = x.data(),
               .y = y.data(),
               .nrows = 5,
               .xcols = 3,
               .ycols = 2,
               .value = value.data(),
               .array = array.data()};
        change(c);

        openblas_set_num_threads(2);
        const int armed = armed_by_the_host(FE_DIVBYZERO | FE_INVALID);
        int status = 0, traps = 0, blas_threads = 0;
        const Heard heard = listen([&] {
            status = entry().run(net, c);
            traps = fegetexcept();
            blas_threads = openblas_get_num_threads();
        });
        fedisableexcept(FE_ALL_EXCEPT);
        openblas_set_num_threads(1);

        EXPECT_EQ(-1, status);
        EXPECT_EQ(std::string(entry().name) + ": refused: " + reason + "\n", heard.err);
        EXPECT_EQ("", heard.out);
        EXPECT_EQ(armed, traps);
        EXPECT_EQ(2, blas_threads);
        EXPECT_EQ(UNTOUCHED, value[0]);
        EXPECT_EQ(bits_of(Numbers(256, UNTOUCHED)), bits_of(array));
    }

    void expect_refusal(
        const std::string& description,
        const std::string& reason,
        const std::function<void(Call&)>& change = [](Call&) {}) const
    {
        SCOPED_TRACE(description);
        const Network net = quiet_network(description);
        expect_refusal(net, reason, change);
    }

    const char* results() const { return entry().takes_targets ? "residuals" : "results"; }
};

// Those entry points that use the norm; write as many numbers as there are weights; take targets; compute a mean.
class RefusedWithoutNorm : public RefusedCall {};

class RefusedWithNullWeights : public RefusedCall {};

class RefusedTargets : public RefusedCall {};

class RefusedMean : public RefusedCall {};

}  // namespace

TEST_P(RefusedCall, ANullHandle)
{
    expect_refusal(static_cast<VEMKNInfo*>(nullptr), "the handle is null", [](Call&) {});
}

TEST_P(RefusedCall, AModelWithoutLayers)
{
    for (const char* text : {"", "3 2 0 1 8 3 4 softplus sum", "no network at all"}) {
        expect_refusal(text, "the network has 0 layers, needs at least 2");
    }
}

TEST_P(RefusedCall, AModelWithOneLayer)
{
    expect_refusal("3 2 1 1 8 3 softplus sum", "the network has 1 layers, needs at least 2");
    expect_refusal("3 2 1 2 8 3 softplus sum", "the network has 1 layers, needs at least 2");
}

TEST_P(RefusedCall, AChainWhoseLastHiddenWidthIsNotTheFirstSize)
{
    expect_refusal("3 2 2 2 8 3 4 softplus sum",
                   "nmult is 2 and the last hidden width 4 differs from the first size 3");
    expect_refusal("3 2 3 5 8 3 3 0 softplus sum",
                   "nmult is 5 and the last hidden width 0 differs from the first size 3");
    expect_refusal("3 2 4 4294967295 8 3 3 3 0 softplus sum",
                   "nmult is 4294967295 and the last hidden width 0 differs from the first size 3");
}

TEST_P(RefusedWithoutNorm, ANetworkWithoutANorm)
{
    expect_refusal("3 2 2 1 8 3 4 softplus l2", "the network has no norm, its norm name is \"l2\"");
    expect_refusal("3 2 2 1 8 3 4 softplus", "the network has no norm, its norm name is \"\"");
}

TEST_P(RefusedCall, AWrongNumberOfWeights)
{
    // 3*4 + 4 + 4*2 + 2
    for (const unsigned nw : {0u, 25u, 27u, 4294967295u}) {
        expect_refusal(GOOD,
                       "nw is " + std::to_string(nw) + ", the network has 26 parameters",
                       [nw](Call& c) { c.nw = nw; });
    }
}

TEST_P(RefusedWithNullWeights, AWrongNumberOfWeights)
{
    expect_refusal(GOOD, "nw is 25, the network has 26 parameters", [](Call& c) {
        c.w = nullptr;
        c.nw = 25;
    });
}

TEST_P(RefusedTargets, AWrongOutputWidth)
{
    for (const unsigned ycols : {0u, 1u, 3u, 4294967295u}) {
        expect_refusal(
            GOOD,
            "the targets have " + std::to_string(ycols) + " columns, the network 2 outputs",
            [ycols](Call& c) { c.ycols = ycols; });
    }
}

TEST_P(RefusedCall, AsManyResultsAs32BitsCannotCount)
{
    // Exactly 2^32, and the most that the arguments can ask for.
    const std::string limit = ", is not below 4294967296";
    const auto no_data = [](Call& c) { c.x = c.y = nullptr; };
    expect_refusal(
        GOOD, std::string("the number of ") + results() + ", 4294967296" + limit, [&](Call& c) {
            no_data(c);
            c.nrows = 2147483648u;
        });
    expect_refusal(
        GOOD, std::string("the number of ") + results() + ", 8589934590" + limit, [&](Call& c) {
            no_data(c);
            c.nrows = 4294967295u;
        });
}

TEST_P(RefusedMean, AnEmptyBatch)
{
    expect_refusal(GOOD, "the batch has 0 rows, needs at least 1", [](Call& c) { c.nrows = 0; });
}

TEST_P(RefusedCall, ComesBeforeTheFatalWidthCheck)
{
    // Five columns alone would end the process.
    expect_refusal(GOOD, "nw is 7, the network has 26 parameters", [](Call& c) {
        c.xcols = 5;
        c.nw = 7;
    });
    expect_refusal("3 2 1 1 8 3 softplus sum",
                   "the network has 1 layers, needs at least 2",
                   [](Call& c) { c.xcols = 5; });
}

TEST_P(RefusedCall, IsHarmlessToTheNextCall)
{
    const plain::Network network{.numin = 3, .numout = 2, .sizes = {3, 4}};
    const Network net(network.text());
    const Batch batch = random_batch(network, 5, 3, 60);
    {
        Capture err = Capture::error();
        Call c = batch.call();
        c.nw = 3;
        EXPECT_EQ(-1, entry().run(net, c));
    }
    // Some dozen roundings of numbers below 10.
    expect_close(results_of(entry(), net, batch), truth_of(entry(), network, batch), 1e-13);
}

INSTANTIATE_TEST_SUITE_P(Entries, RefusedCall, testing::ValuesIn(ENTRIES), name_of);
INSTANTIATE_TEST_SUITE_P(Entries,
                         RefusedWithoutNorm,
                         testing::ValuesIn(entries_where([](const Entry& e) {
                             return e.uses_norm;
                         })),
                         name_of);
INSTANTIATE_TEST_SUITE_P(Entries,
                         RefusedWithNullWeights,
                         testing::ValuesIn(entries_where([](const Entry& e) {
                             return e.needs_nw_with_null_w;
                         })),
                         name_of);
INSTANTIATE_TEST_SUITE_P(Entries,
                         RefusedTargets,
                         testing::ValuesIn(entries_where([](const Entry& e) {
                             return e.takes_targets;
                         })),
                         name_of);
INSTANTIATE_TEST_SUITE_P(Entries,
                         RefusedMean,
                         testing::ValuesIn(entries_where([](const Entry& e) {
                             return !e.takes_empty;
                         })),
                         name_of);

namespace {

// The call is refused with that message, and the state of process and thread stays.
template <class F>
void expect_refusal(const std::string& message, const F& call)
{
    openblas_set_num_threads(2);
    const int armed = armed_by_the_host(FE_DIVBYZERO | FE_INVALID);
    int status = 0, traps = 0;
    const Heard heard = listen([&] {
        status = call();
        traps = fegetexcept();
    });
    fedisableexcept(FE_ALL_EXCEPT);
    EXPECT_EQ(-1, status);
    EXPECT_EQ(message + "\n", heard.err);
    EXPECT_EQ("", heard.out);
    EXPECT_EQ(armed, traps);
    EXPECT_EQ(2, openblas_get_num_threads());
}

void expect_norm_refusal(VEMKNInfo* net, unsigned a, unsigned b, const std::string& reason)
{
    const double r[] = {1, 2, 3, 4};
    double result = UNTOUCHED;
    expect_refusal("vemk_norm: refused: " + reason,
                   [&] { return vemk_norm(net, r, a, b, &result); });
    EXPECT_EQ(UNTOUCHED, result);
}

void expect_logp_refusal(VEMKNInfo* net, const std::string& reason)
{
    const double x[] = {1, 2, 3, 4};
    Numbers values(4, UNTOUCHED);
    expect_refusal("vemk_logp: refused: " + reason,
                   [&] { return vemk_logp(net, x, 4, values.data()); });
    EXPECT_EQ(bits_of(Numbers(4, UNTOUCHED)), bits_of(values));
}

}  // namespace

TEST(Norm, RefusesANullHandle)
{
    expect_norm_refusal(nullptr, 2, 2, "the handle is null");
}

TEST(Norm, RefusesANetworkWithoutANorm)
{
    const Network unknown = quiet_network("3 2 2 1 8 3 4 softplus l2");
    expect_norm_refusal(unknown, 2, 2, "the network has no norm, its norm name is \"l2\"");
    const Network invalid = quiet_network("");
    expect_norm_refusal(invalid, 2, 2, "the network has no norm, its norm name is \"\"");
}

TEST(Norm, RefusesAsManyElementsAs32BitsCannotCount)
{
    const Network net(GOOD);
    expect_norm_refusal(
        net, 65536, 65536, "the number of elements, 4294967296, is not below 4294967296");
    expect_norm_refusal(net,
                        4294967295u,
                        4294967295u,
                        "the number of elements, 18446744065119617025, is not below 4294967296");
}

TEST(Norm, NeedsNoEvaluableNetwork)
{
    const Network one_layer("3 2 1 1 8 3 softplus sum");
    const double r[] = {1, 2, 3, 6};
    double result = 0;
    EXPECT_EQ(0, vemk_norm(one_layer, r, 2, 2, &result));
    EXPECT_EQ(3.0, result);
}

TEST(Logp, RefusesANullHandle)
{
    expect_logp_refusal(nullptr, "the handle is null");
}

TEST(Logp, RefusesANetworkWithoutANorm)
{
    const Network unknown = quiet_network("3 2 2 1 8 3 4 softplus l2");
    expect_logp_refusal(unknown, "the network has no norm, its norm name is \"l2\"");
}
