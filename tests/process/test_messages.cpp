#include <gtest/gtest.h>
#include <regex.h>

#include <atomic>
#include <iomanip>
#include <iostream>
#include <locale>
#include <thread>

#include "support/calls.h"
#include "support/child.h"

// The exact bytes of every message of the library, in processes of their own.

namespace {

const std::string BANNER = "VEMKN " VEMKN_VERSION " (C) 2026 the VEMKN developers\n";
const std::string INVALID = "Error: invalid network data\n";
constexpr const char* GOOD = "3 2 2 1 8 3 4 softplus sum_log_dnorm_fat";

void expect_success(const child::Outcome& outcome)
{
    EXPECT_TRUE(outcome.exited_with(0)) << outcome.description();
}

// Whether the whole text fits the (POSIX extended) pattern.
bool fits(const std::string& text, const std::string& pattern)
{
    regex_t compiled;
    if (regcomp(&compiled, ("^" + pattern + "$").c_str(), REG_EXTENDED | REG_NOSUB) != 0)
        return false;
    const bool found = regexec(&compiled, text.c_str(), 0, nullptr, 0) == 0;
    regfree(&compiled);
    return found;
}

std::string twice(const std::string& text)
{
    return text + text;
}

void call_everything(VEMKNInfo* net)
{
    const Batch batch = random_batch({.numin = 3, .numout = 2, .sizes = {3, 4}}, 40, 3, 1);
    for (const Entry& entry : ENTRIES) results_of(entry, net, batch);
}

}  // namespace

SCENE(makes_networks)
{
    for (const std::string& text : arguments) const Network net(text);
}

SCENE(calls_everything)
{
    for (int i = 0; i < 3; ++i) {
        const Network net(GOOD);
        vemk_setpar(net, 3, 8);
        call_everything(net);
    }
}

SCENE(neither_parses_nor_computes)
{
    releaseVEMKNet(nullptr);
    vemk_setpar(nullptr, 4, 8);
    vemk_setbatch(nullptr, 8);
    vemk_major(nullptr, 1);
    vemk_numel(nullptr);
    vemk_logp_bias(nullptr);
    double value = 0;
    vemk_norm(nullptr, &value, 1, 1, &value);
}

SCENE(does_without_the_banner)
{
    vemk_nobanner();
    Network net(GOOD);
    call_everything(net);
}

SCENE(starts_on_many_threads_at_once)
{
    std::atomic<int> ready{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&] {
            ++ready;
            while (ready < 8) {
            }
            Network net(GOOD);
        });
    }
    for (std::thread& thread : threads) thread.join();
}

TEST(Banner, IsTheFirstLineOfTheFirstParse)
{
    const child::Outcome outcome = child::play("makes_networks", {GOOD});
    expect_success(outcome);
    EXPECT_EQ(BANNER, outcome.out);
    EXPECT_EQ("", outcome.err);
}

TEST(Banner, AppearsOnceAProcess)
{
    const child::Outcome outcome = child::play("calls_everything");
    expect_success(outcome);
    EXPECT_EQ(BANNER, outcome.out);
    EXPECT_EQ("", outcome.err);
}

TEST(Banner, AppearsOnceWhenSeveralThreadsStartAtOnce)
{
    for (int repetition = 0; repetition < 20; ++repetition) {
        const child::Outcome outcome = child::play("starts_on_many_threads_at_once");
        expect_success(outcome);
        ASSERT_EQ(BANNER, outcome.out);
    }
}

TEST(Banner, DoesNotAppearBeforeAParseOrAComputation)
{
    // A refused call never enters the frame.
    const child::Outcome outcome = child::play("neither_parses_nor_computes");
    expect_success(outcome);
    EXPECT_EQ("", outcome.out);
    EXPECT_EQ("vemk_norm: refused: the handle is null\n", outcome.err);
}

TEST(Banner, DoesNotAppearAfterNobanner)
{
    const child::Outcome outcome = child::play("does_without_the_banner");
    expect_success(outcome);
    EXPECT_EQ("", outcome.out);
    EXPECT_EQ("", outcome.err);
}

TEST(Banner, ComesBeforeWhatTheParserSays)
{
    const child::Outcome outcome = child::play("makes_networks", {"3 2 2 1 8 3 4 relu l2"});
    EXPECT_EQ(BANNER + twice("invalid norm function name: l2\n"), outcome.out);
    EXPECT_EQ("", outcome.err);
}

TEST(InvalidData, IsSaidOnStandardErrorForEachOfTheTwoModels)
{
    for (const char* text : {"", "0 2 2 1 8 3 4 relu sum", "nothing", "3 2 2 1"}) {
        const child::Outcome outcome = child::play("makes_networks", {text});
        expect_success(outcome);
        EXPECT_EQ(BANNER, outcome.out);
        EXPECT_EQ(twice(INVALID), outcome.err);
    }
}

TEST(InvalidNorm, IsSaidOnStandardOutputForEachOfTheTwoModels)
{
    const child::Outcome outcome = child::play(
        "makes_networks",
        {"3 2 2 1 8 3 4 relu Sum", "3 2 2 1 8 3 4 relu", "3 2 2 1 8 3 4 relu \xff\xfe%n"});
    expect_success(outcome);
    EXPECT_EQ(BANNER + twice("invalid norm function name: Sum\n") +
                  twice("invalid norm function name: \n") +
                  twice("invalid norm function name: \xff\xfe%n\n"),
              outcome.out);
    EXPECT_EQ("", outcome.err);
}

TEST(InvalidNorm, IsNotSaidWhenTheDataAreInvalid)
{
    const child::Outcome outcome = child::play("makes_networks", {"3 0 2 1 8 3 4 relu l2"});
    EXPECT_EQ(BANNER, outcome.out);
    EXPECT_EQ(twice(INVALID), outcome.err);
}

#ifdef __x86_64__
#define PROCESSOR "x86-64"
#else
#define PROCESSOR "aarch64"
#endif

TEST(InfoLine, FollowsTheBannerForEachOfTheTwoModels)
{
    const std::string line =
        "VEMKN vemkn\\.h (Jan|Feb|Mar|Apr|May|Jun|Jul|Aug|Sep|Oct|Nov|Dec) [ 123][0-9] 20[0-9]{2} "
        "[0-2][0-9]:[0-5][0-9]:[0-5][0-9] " PROCESSOR "\n";
    for (const char* value : {"1", "0", "", "anything at all"}) {
        const child::Outcome outcome =
            child::play("makes_networks", {GOOD}, {.environment = {{"INFO", value}}});
        expect_success(outcome);
        ASSERT_EQ(BANNER, outcome.out.substr(0, BANNER.size())) << outcome.out;
        const std::string lines = outcome.out.substr(BANNER.size());
        EXPECT_TRUE(fits(lines, twice(line))) << value << ": " << lines;
        EXPECT_EQ("", outcome.err);
    }
}

TEST(InfoLine, ComesAtEveryParseAndBeforeWhatTheParserSays)
{
    const child::Outcome outcome = child::play(
        "makes_networks", {GOOD, "3 2 2 1 8 3 4 relu l2"}, {.environment = {{"INFO", "1"}}});
    const std::string info = "VEMKN vemkn\\.h [^\n]* " PROCESSOR "\n";
    const std::string said = info + "invalid norm function name: l2\n";
    EXPECT_TRUE(fits(outcome.out.substr(BANNER.size()), twice(info) + twice(said))) << outcome.out;
}

TEST(InfoLine, DoesNotComeWithoutTheVariable)
{
    EXPECT_EQ(BANNER, child::play("makes_networks", {GOOD}).out);
}

namespace {

// Numbers as a host may like them: grouped in threes.
struct Grouped : std::numpunct<char> {
    char do_thousands_sep() const override { return '.'; }

    std::string do_grouping() const override { return "\3"; }
};

void refuse_with_large_numbers()
{
    const Network net("3 2 2 1 8 1000 2000 softplus sum");
    const Call call{.nw = 123456, .nrows = 1, .xcols = 3, .ycols = 2};
    Call c = call;
    const double w = 0;
    c.w = &w;
    entry_points::residual.call(net, c);
}

const std::string REFUSED =
    "vemk_residual: refused: nw is 123456, the network has 2006002 parameters\n";

}  // namespace

SCENE(has_streams_of_its_own_style)
{
    std::locale::global(std::locale(std::locale::classic(), new Grouped));
    for (std::ostream* const stream : {&std::cout, &std::cerr}) {
        stream->imbue(std::locale());
        *stream << std::hex << std::showbase << std::uppercase << std::setfill('*') << std::left;
        stream->width(40);
    }
    const Network unknown_norm("3 2 2 1 8 3 4 relu l2");
    const Network invalid("0 2 2 1 8 3 4 relu sum");
    refuse_with_large_numbers();
}

TEST(Messages, DoNotDependOnTheStylesOfTheHostsStreams)
{
    const child::Outcome outcome = child::play("has_streams_of_its_own_style");
    expect_success(outcome);
    EXPECT_EQ(BANNER + twice("invalid norm function name: l2\n"), outcome.out);
    EXPECT_EQ(twice(INVALID) + REFUSED, outcome.err);
}

SCENE(has_buffers_of_its_own)
{
    std::cout.rdbuf(nullptr);
    std::cerr.rdbuf(nullptr);
    const Network unknown_norm("3 2 2 1 8 3 4 relu l2");
    const Network invalid("0 2 2 1 8 3 4 relu sum");
}

TEST(Messages, AreNoErrorOnStreamsWithoutABuffer)
{
    const child::Outcome outcome = child::play("has_buffers_of_its_own");
    expect_success(outcome);
    EXPECT_EQ("", outcome.out);
    EXPECT_EQ("", outcome.err);
}
