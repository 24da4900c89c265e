#include <cblas.h>
#include <gtest/gtest.h>
#include <omp.h>
#include <signal.h>

#include <functional>
#include <limits>

#include "support/calls.h"
#include "support/capture.h"
#include "support/child.h"
#include "support/fp_state.h"

// The quiet mode: no traps, and a return value of 1 for results that are not all finite.

namespace {

plain::Network small(const std::string& norm)
{
    return {.numin = 2, .numout = 1, .sizes = {2, 2}, .activation = "id", .norm = norm};
}

// What traps in a handle that is not quiet.
struct Accident {
    const char* norm;
    std::function<void(Batch&)> happen;
};

const Accident ACCIDENTS[] = {
    {"sum", [](Batch& b) { b.w.assign(b.w.size(), 1e200); }},
    {"sum",
     [](Batch& b) {
         b.w = {0, 0, 1, 1, -1, -1, 0, 1, 1};
         b.x[10] = b.x[11] = INF;
     }},
    {"sum", [](Batch& b) { b.x[10] = QUIET_NAN; }},
    {"sum", [](Batch& b) { b.x[10] = std::numeric_limits<double>::signaling_NaN(); }},
};

const Accident LIKELIHOOD_ACCIDENTS[] = {
    {"sum_log_dnorm_fat", [](Batch& b) { b.y[5] = 1.4e154; }},
    {"sum_log_dnorm_fat", [](Batch& b) { b.y[15] = -INF; }},
};

bool all_finite(const Numbers& numbers)
{
    for (const double x : numbers) {
        if (!std::isfinite(x)) return false;
    }
    return true;
}

// A call with its results and its return value.
struct Outcome {
    int status;
    Numbers results;
};

Outcome run(const Entry& entry, VEMKNInfo* net, const Call& call)
{
    Call c = call;
    Outcome outcome{0, Numbers(1 + entry.array_size(c, vemk_numout(net)), -5.0)};
    c.value = outcome.results.data();
    c.array = outcome.results.data() + 1;
    outcome.status = entry.run(net, c);
    return outcome;
}

class Quiet : public testing::TestWithParam<Entry> {
protected:
    const Entry& entry() const { return GetParam(); }

    void expect_reported(const Accident& accident) const
    {
        const Network net(small(accident.norm).text());
        ASSERT_EQ(0, vemk_quiet(net, 1));
        for (const unsigned threads : {1u, 4u}) {
            ASSERT_EQ(0, vemk_setpar(net, threads, 2));
            Batch batch = random_batch(small(accident.norm), 16, 2, 1);
            EXPECT_EQ(0, run(entry(), net, batch.call()).status);
            accident.happen(batch);
            const Outcome outcome = run(entry(), net, batch.call());
            EXPECT_EQ(1, outcome.status) << threads;
            EXPECT_FALSE(all_finite(outcome.results)) << threads;
            EXPECT_EQ(0, fegetexcept());
        }
    }
};

class QuietLikelihood : public Quiet {};

}  // namespace

TEST_P(Quiet, TellsOfResultsThatAreNotFinite)
{
    for (const Accident& accident : ACCIDENTS) expect_reported(accident);
}

TEST_P(QuietLikelihood, TellsOfResultsThatAreNotFinite)
{
    for (const Accident& accident : LIKELIHOOD_ACCIDENTS) expect_reported(accident);
}

TEST_P(Quiet, GivesTheBitsOfTheLoudModeWhereAllIsWell)
{
    const plain::Network network = small("sum_log_dnorm_fat");
    const Network net(network.text());
    const Batch batch = random_batch(network, 40, 2, 2);
    for (const unsigned threads : {1u, 4u}) {
        ASSERT_EQ(0, vemk_setpar(net, threads, 4));
        const Outcome loud = run(entry(), net, batch.call());
        ASSERT_EQ(0, vemk_quiet(net, 1));
        const Outcome quiet = run(entry(), net, batch.call());
        ASSERT_EQ(0, vemk_quiet(net, 0));
        EXPECT_EQ(0, quiet.status);
        EXPECT_EQ(bits_of(loud.results), bits_of(quiet.results));
    }
}

TEST_P(Quiet, CountsResultsThatAreNotWanted)
{
    const Network net(small("sum").text());
    ASSERT_EQ(0, vemk_quiet(net, 1));
    Batch batch = random_batch(small("sum"), 16, 2, 1);
    EXPECT_EQ(0, entry().run(net, batch.call()));
    batch.w.assign(batch.w.size(), 1e200);
    EXPECT_EQ(1, entry().run(net, batch.call()));
}

TEST_P(Quiet, PutsTheHostsEnvironmentBackAsItFoundIt)
{
    const Network net(small("sum").text());
    ASSERT_EQ(0, vemk_quiet(net, 1));
    ASSERT_EQ(0, vemk_setpar(net, 2, 2));
    Batch batch = random_batch(small("sum"), 16, 2, 1);
    batch.w.assign(batch.w.size(), 1e200);

    // Traps of the host, its flags and its rounding; on the worker too. A team is never larger than two on a small machine,
    // and OpenMP may end the threads that a smaller team leaves over.
    FpState before[2], after[2];
    int traps_before[2] = {}, traps[2] = {};
#pragma omp parallel num_threads(2)
    {
        const int thread = omp_get_thread_num();
        std::feclearexcept(FE_ALL_EXCEPT);
        if (thread == 1) leave_stale_flags();
        if (thread == 1) std::fesetround(FE_DOWNWARD);
        if (thread == 0) feenableexcept(FE_DIVBYZERO | FE_OVERFLOW);
        before[thread] = FpState::now();
        traps_before[thread] = fegetexcept();  // none where the processor has none
    }
    openblas_set_num_threads(2);
    const int status = run(entry(), net, batch.call()).status;
    const int blas_threads = openblas_get_num_threads();
    openblas_set_num_threads(1);
#pragma omp parallel num_threads(2)
    {
        const int thread = omp_get_thread_num();
        after[thread] = FpState::now();
        traps[thread] = fegetexcept();
        std::fesetenv(FE_DFL_ENV);
    }
    EXPECT_EQ(1, status);
    EXPECT_EQ(2, blas_threads);
    for (int thread = 0; thread < 2; ++thread) {
        EXPECT_EQ(before[thread], after[thread]) << thread;
        EXPECT_EQ(traps_before[thread], traps[thread]) << thread;
    }
}

TEST_P(Quiet, IsAMatterOfTheHandle)
{
    const Network quiet(small("sum").text()), loud(small("sum").text());
    ASSERT_EQ(0, vemk_quiet(quiet, 5));
    Batch batch = random_batch(small("sum"), 16, 2, 1);
    batch.w.assign(batch.w.size(), 1e200);
    EXPECT_EQ(1, entry().run(quiet, batch.call()));
    EXPECT_EXIT(entry().run(loud, batch.call()), testing::KilledBySignal(SIGFPE), "");
}

TEST_P(Quiet, CanBeSwitchedOffAgain)
{
    const Network net(small("sum").text());
    ASSERT_EQ(0, vemk_quiet(net, 1));
    ASSERT_EQ(0, vemk_quiet(net, 0));
    Batch batch = random_batch(small("sum"), 16, 2, 1);
    batch.w.assign(batch.w.size(), 1e200);
    EXPECT_EXIT(entry().run(net, batch.call()), testing::KilledBySignal(SIGFPE), "");
}

TEST_P(Quiet, RefusesAndStopsAsEver)
{
    const Network net(small("sum").text());
    ASSERT_EQ(0, vemk_quiet(net, 1));
    Call call = random_batch(small("sum"), 16, 2, 1).call();
    call.w = call.x = call.y = nullptr;
    call.xcols = 3;
    EXPECT_EXIT(entry().run(net, call),
                testing::ExitedWithCode(3),
                "too many predicates: 3 > 2\nstop: too many predicates\n");
    const double w = 0;
    call.w = &w;
    call.nw = 7;
    int status = 0;
    const Heard heard = listen([&] { status = entry().run(net, call); });
    EXPECT_EQ(-1, status);
    EXPECT_EQ(std::string(entry().name) + ": refused: nw is 7, the network has 9 parameters\n",
              heard.err);
}

INSTANTIATE_TEST_SUITE_P(Entries, Quiet, testing::ValuesIn(ENTRIES), name_of);
INSTANTIATE_TEST_SUITE_P(Entries,
                         QuietLikelihood,
                         testing::ValuesIn(entries_where([](const Entry& e) {
                             return e.uses_norm;
                         })),
                         name_of);

TEST(QuietNormAndLogp, TellOfResultsThatAreNotFinite)
{
    const Network net(small("sum_log_dnorm_fat").text());
    ASSERT_EQ(0, vemk_quiet(net, 1));
    double result = 0;
    for (const double x : {1.4e154, INF, QUIET_NAN}) {
        const Numbers r = {0, 1, x};
        Numbers y(3);
        EXPECT_EQ(1, vemk_norm(net, r.data(), 3, 1, &result)) << x;
        EXPECT_FALSE(std::isfinite(result));
        EXPECT_EQ(1, vemk_logp(net, r.data(), 3, y.data())) << x;
        EXPECT_EQ(0.0, y[0]);
        EXPECT_FALSE(std::isfinite(y[2]));
    }
    const Numbers good = {0, 1, 2};
    EXPECT_EQ(0, vemk_norm(net, good.data(), 3, 1, &result));
    EXPECT_TRUE(std::isfinite(result));
    EXPECT_EQ(0, vemk_norm(net, nullptr, 0, 1, &result));
}

TEST(QuietMode, RejectsANullHandle)
{
    EXPECT_EQ(-1, vemk_quiet(nullptr, 1));
    EXPECT_EQ(-1, vemk_quiet(nullptr, 0));
}

TEST(Version, IsThatOfTheHeader)
{
    EXPECT_STREQ(VEMKN_VERSION, vemk_version());
    EXPECT_EQ(std::to_string(VEMKN_VERSION_MAJOR) + "." + std::to_string(VEMKN_VERSION_MINOR) +
                  "." + std::to_string(VEMKN_VERSION_PATCH),
              vemk_version());
    EXPECT_EQ(std::string(VEMKN_VERSION),
              std::to_string(VEMKN_VERSION_MAJOR) + "." + std::to_string(VEMKN_VERSION_MINOR) +
                  "." + std::to_string(VEMKN_VERSION_PATCH));
}
