#include <cblas.h>

#include <algorithm>
#include <functional>

#include "jacobian/derivative_calls.h"
#include "support/capture.h"
#include "support/fp_state.h"

// What the four derivative products refuse, and that a refused call does nothing but say so.

namespace {

// The arguments of all four, with the widest of their types.
struct Arguments {
    const double* w;
    unsigned nw;
    const double* v;  // tangents or cotangents
    unsigned nv;      // their number; vemk_vJ has one
    const double* x;
    const double* y;
    unsigned nrows, xcols, ycols;
    double* value;
    double* first;   // gradient, values or residuals
    double* second;  // products
};

struct Entry {
    const char* name;
    int (*run)(VEMKNInfo* net, const Arguments& a);
    bool takes_tangents;
};

int run_Hv(VEMKNInfo* net, const Arguments& a)
{
    return vemk_Hv(
        net, a.w, a.nw, a.v, a.nv, a.x, a.y, a.nrows, a.xcols, a.ycols, a.value, a.first, a.second);
}

int run_Jv(VEMKNInfo* net, const Arguments& a)
{
    return vemk_Jv(
        net, a.w, a.nw, a.v, a.nv, a.x, a.y, a.nrows, a.xcols, a.ycols, a.first, a.second);
}

int run_vJ(VEMKNInfo* net, const Arguments& a)
{
    return vemk_vJ(net, a.w, a.nw, a.v, 0, a.x, a.y, a.nrows, a.xcols, a.ycols, a.first, a.second);
}

int run_vJ_vec(VEMKNInfo* net, const Arguments& a)
{
    return vemk_vJ_vec(
        net, a.w, a.nw, a.v, a.nv, a.x, a.y, a.nrows, a.xcols, a.ycols, a.first, a.second);
}

constexpr Entry ENTRIES[] = {{"vemk_Hv", run_Hv, true},
                             {"vemk_Jv", run_Jv, true},
                             {"vemk_vJ", run_vJ, false},
                             {"vemk_vJ_vec", run_vJ_vec, false}};

void PrintTo(const Entry& entry, std::ostream* out)
{
    *out << entry.name;
}

std::string name_of(const testing::TestParamInfo<Entry>& instance)
{
    return instance.param.name;
}

class RefusedProduct : public testing::TestWithParam<Entry> {
protected:
    // 2-3-2, numel = 3 + 6 + 2 + 6
    static constexpr const char* TEXT = "2 2 2 1 8 2 3 atan sum";
    static constexpr unsigned NW = 17;
    static constexpr std::size_t ROOM = 400;

    // The call, changed by `change`, is refused with one line that holds all of `words`.
    void expect_refused(VEMKNInfo* net,
                        const std::function<void(Arguments&)>& change,
                        const std::vector<std::string>& words) const
    {
        const Numbers inputs(ROOM, 0.25);
        double value = UNTOUCHED;
        Output first(ROOM), second(ROOM);
        Arguments a{.w = inputs.data(),
                    .nw = NW,
                    .v = inputs.data(),
                    .nv = 2,
                    .x = inputs.data(),
                    .y = inputs.data(),
                    .nrows = 3,
                    .xcols = 2,
                    .ycols = 2,
                    .value = &value,
                    .first = first.data(),
                    .second = second.data()};
        change(a);

        const int host_blas_threads = openblas_get_num_threads();
        openblas_set_num_threads(2);
        // A host may have armed traps of its own.
        const int armed = armed_by_the_host(FE_OVERFLOW);
        Capture out = Capture::output(), err = Capture::error();
        const int result = GetParam().run(net, a);
        const std::string error = err.text(), output = out.text();
        EXPECT_EQ(armed, fegetexcept());
        EXPECT_EQ(2, openblas_get_num_threads());
        fedisableexcept(FE_ALL_EXCEPT);
        openblas_set_num_threads(host_blas_threads);

        EXPECT_EQ(-1, result);
        EXPECT_EQ("", output);
        EXPECT_EQ(1, std::count(error.begin(), error.end(), '\n')) << error;
        EXPECT_EQ('\n', error.empty() ? '?' : error.back());
        EXPECT_EQ(0u, error.find(GetParam().name + std::string(": refused: "))) << error;
        for (const std::string& word : words) {
            EXPECT_NE(std::string::npos, error.find(word)) << word << " is not in " << error;
        }
        EXPECT_EQ(UNTOUCHED, value);
        EXPECT_TRUE(first.untouched());
        EXPECT_TRUE(second.untouched());
    }

    // For a network that cannot be evaluated, whatever the call.
    void expect_network_refused(const std::string& text,
                                const std::vector<std::string>& words) const
    {
        SCOPED_TRACE(text);
        Capture out = Capture::output(), err = Capture::error();
        const Network net(text);
        out.text();
        err.text();
        expect_refused(
            net, [&](Arguments& a) { a.nw = static_cast<unsigned>(vemk_numel(net)); }, words);
    }
};

// n as a word of its own.
std::string word(unsigned n)
{
    std::string text = std::to_string(n);
    text.insert(text.begin(), ' ');
    return text;
}

void unchanged(Arguments&) {}

}  // namespace

TEST_P(RefusedProduct, OfANullHandle)
{
    expect_refused(nullptr, unchanged, {"null"});
}

TEST_P(RefusedProduct, OfANetworkWithoutLayers)
{
    expect_network_refused("2 2 0 1 8", {" 0 ", " 2"});
    expect_network_refused("", {" 0 ", " 2"});
}

TEST_P(RefusedProduct, OfANetworkWithOneLayer)
{
    expect_network_refused("2 2 1 1 8 2 atan sum", {" 1 ", " 2"});
}

TEST_P(RefusedProduct, OfPassesThatDoNotFitTogether)
{
    expect_network_refused("2 2 2 2 8 2 3 atan sum", {"nmult", " 3 ", " 2"});
    expect_network_refused("2 2 3 3 8 2 5 4 atan sum", {"nmult", " 4 ", " 2"});
}

TEST_P(RefusedProduct, OfAnUnknownNorm)
{
    expect_network_refused("2 2 2 1 8 2 3 atan l2", {"norm", "l2"});
}

TEST_P(RefusedProduct, OfAnotherNumberOfWeights)
{
    const Network net(TEXT);
    for (const unsigned nw : {0u, NW - 1, NW + 1}) {
        const auto change = [&](Arguments& a) { a.nw = nw; };
        expect_refused(net, change, {word(nw), " 17"});
    }
}

TEST_P(RefusedProduct, OfAnotherNumberOfWeightsEvenWithoutWeights)
{
    // Results of that length are written, so the number has a meaning even so.
    const Network net(TEXT);
    const auto change = [](Arguments& a) {
        a.w = nullptr;
        a.nw = NW + 1;
    };
    expect_refused(net, change, {" 18", " 17"});
}

TEST_P(RefusedProduct, OfAnotherNumberOfTargetColumns)
{
    const Network net(TEXT);
    for (const unsigned ycols : {0u, 1u, 3u}) {
        const auto change = [&](Arguments& a) { a.ycols = ycols; };
        expect_refused(net, change, {word(ycols), " 2"});
    }
}

TEST_P(RefusedProduct, OfTooManyResiduals)
{
    // 2^31 rows of two: nothing of the sort is allocated or read.
    const Network net(TEXT);
    const auto change = [](Arguments& a) {
        a.nrows = 1u << 31;
        a.x = a.y = a.v = nullptr;
    };
    expect_refused(net, change, {"4294967296"});
    const auto most = [&](Arguments& a) {
        change(a);
        a.nrows = ~0u;
    };
    expect_refused(net, most, {"8589934590", "4294967296"});
}

TEST_P(RefusedProduct, BeforeTheInputColumnsAreLookedAt)
{
    // Too many of those end the process, but not that of a call that is refused.
    const Network net(TEXT);
    const auto change = [](Arguments& a) {
        a.nw = NW + 1;
        a.xcols = 50;
    };
    expect_refused(net, change, {" 18", " 17"});
}

INSTANTIATE_TEST_SUITE_P(Entries, RefusedProduct, testing::ValuesIn(ENTRIES), name_of);

namespace {

class RefusedTangents : public RefusedProduct {};

}  // namespace

TEST_P(RefusedTangents, OfMoreThanThereAreWeightsInRowOrder)
{
    const Network net(TEXT);
    const RowOrder row_order;
    for (const unsigned nv : {NW + 1, 100u}) {
        const auto change = [&](Arguments& a) { a.nv = nv; };
        expect_refused(net, change, {word(nv), " 17"});
    }
}

TEST_P(RefusedTangents, NotOfMoreThanThereAreWeightsInColumnOrder)
{
    const Network net(TEXT);
    Numbers inputs(NW * (NW + 1), 0.25), first(NW), second(NW * (NW + 1));
    double value = 0;
    const Arguments a{.w = inputs.data(),
                      .nw = NW,
                      .v = inputs.data(),
                      .nv = NW + 1,
                      .x = inputs.data(),
                      .y = inputs.data(),
                      .nrows = 3,
                      .xcols = 2,
                      .ycols = 2,
                      .value = &value,
                      .first = first.data(),
                      .second = second.data()};
    EXPECT_EQ(0, GetParam().run(net, a));
}

TEST_P(RefusedTangents, OfTooManyTangentValues)
{
    const Network net(TEXT);
    // 17 * 252645136 is the first multiple of 17 from 2^32 on.
    const auto change = [](Arguments& a) {
        a.nv = 252645136;
        a.v = nullptr;
    };
    expect_refused(net, change, {"4294967312", "4294967296"});
    const auto most = [](Arguments& a) {
        a.nv = ~0u;
        a.v = nullptr;
    };
    expect_refused(net, most, {"73014444015", "4294967296"});
}

INSTANTIATE_TEST_SUITE_P(Entries,
                         RefusedTangents,
                         testing::Values(ENTRIES[0], ENTRIES[1]),
                         name_of);

namespace {

class RefusedCotangents : public RefusedProduct {};

}  // namespace

TEST_P(RefusedCotangents, OfTooManyValues)
{
    const Network net(TEXT);
    // 3 rows of 2: 6 * 715827883 is the first multiple of 6 from 2^32 on.
    const auto change = [](Arguments& a) {
        a.nv = 715827883;
        a.v = nullptr;
    };
    expect_refused(net, change, {"4294967298", "4294967296"});
    // k * n * nout beyond 64 bits.
    const auto most = [](Arguments& a) {
        a.nv = ~0u;
        a.nrows = (1u << 31) - 1;
        a.v = a.x = a.y = nullptr;
    };
    expect_refused(net, most, {"4294967296"});
}

INSTANTIATE_TEST_SUITE_P(Entries, RefusedCotangents, testing::Values(ENTRIES[3]), name_of);

namespace {

class RefusedResults : public RefusedProduct {};

}  // namespace

// Fewer tangent or cotangent values than 2^32, but not fewer results.
TEST_P(RefusedResults, OfTooMany)
{
    const Network net("1 1 2 1 8 1 1 id sum");  // four weights
    const bool forward = GetParam().takes_tangents;
    const auto change = [&](Arguments& a) {
        a.nw = 4;
        a.nrows = forward ? 65536 : 0;
        a.nv = forward ? 65536 : 1u << 30;
        a.xcols = a.ycols = 1;
        a.v = a.x = a.y = nullptr;
    };
    expect_refused(
        net, change, {forward ? "derivatives, 4294967296" : "gradient entries, 4294967296"});
}

INSTANTIATE_TEST_SUITE_P(Entries, RefusedResults, testing::Values(ENTRIES[1], ENTRIES[3]), name_of);
