#include <cblas.h>
#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>
#include <atomic>
#include <new>
#include <thread>

#include "support/allocations.h"
#include "support/calls.h"
#include "support/capture.h"
#include "support/fp_state.h"

namespace {

// With ROWS rows enough work for a team.
constexpr unsigned ROWS = 1203;
constexpr int ROWS_OF_A_SLICE = 120;

plain::Network small()
{
    return {.numin = 3,
            .numout = 2,
            .sizes = {3, 4},
            .activation = "softplus_shifted",
            .norm = "sum_log_dnorm_fat"};
}

// The calls of the library that run inside the frame: the entry points over a batch, those of the norm alone, and the
// parser.
struct Framed {
    const char* name;
    void (*run)(VEMKNInfo* net, const Batch& batch);
};

template <int WHICH>
void run_entry(VEMKNInfo* net, const Batch& batch)
{
    results_of(ENTRIES[WHICH], net, batch);
}

void run_norm(VEMKNInfo* net, const Batch& batch)
{
    double result = 0;
    EXPECT_EQ(0, vemk_norm(net, batch.y.data(), batch.nrows, batch.ycols, &result));
}

void run_logp(VEMKNInfo* net, const Batch& batch)
{
    Numbers result(batch.y.size());
    EXPECT_EQ(0,
              vemk_logp(net, batch.y.data(), static_cast<unsigned>(batch.y.size()), result.data()));
}

void run_init(VEMKNInfo*, const Batch&)
{
    Network(small().text());
}

const Framed FRAMED[] = {
    {"vemk_compute", run_entry<0>},
    {"vemk_residual", run_entry<1>},
    {"vemk_obj", run_entry<2>},
    {"vemk_objv", run_entry<3>},
    {"vemk_g", run_entry<4>},
    {"vemk_norm", run_norm},
    {"vemk_logp", run_logp},
    {"initVEMKNet", run_init},
};

void PrintTo(const Framed& call, std::ostream* out)
{
    *out << call.name;
}

class CallFrame : public testing::TestWithParam<Framed> {
protected:
    // Puts back what a failed expectation leaves.
    void TearDown() override
    {
        allocations::ignore();
        fedisableexcept(FE_ALL_EXCEPT);
        openblas_set_num_threads(1);
    }

    void run() const { GetParam().run(net_, batch_); }

    // Eleven slices on three threads.
    void run_with_team() const
    {
        ASSERT_EQ(0, vemk_setpar(net_, 3, ROWS_OF_A_SLICE));
        run();
    }

private:
    Network net_{small().text()};
    Batch batch_ = random_batch(small(), ROWS, 3, 1);
};

std::string framed_name(const testing::TestParamInfo<Framed>& instance)
{
    return instance.param.name;
}

// What the middle of a call looks like, from its allocations.
namespace seen {

std::thread::id caller;
std::atomic<int> framed_on_caller, on_workers, unarmed_on_workers;

void look()
{
    const int traps = fegetexcept();
    if (std::this_thread::get_id() == caller) {
        if (traps == traps_of_a_call() && openblas_get_num_threads() == 1) ++framed_on_caller;
    } else {
        ++on_workers;
        if (traps != traps_of_a_call()) ++unarmed_on_workers;
    }
}

void start()
{
    caller = std::this_thread::get_id();
    framed_on_caller = on_workers = unarmed_on_workers = 0;
    allocations::watch(look);
}

}  // namespace seen

// Lack of memory inside the frame, which sets BLAS to one thread: one allocation fails.
namespace lack {

std::atomic<int> left;
std::atomic<bool> happened;

void fail()
{
    const bool in_frame = fegetexcept() == traps_of_a_call() && openblas_get_num_threads() == 1;
    if (!in_frame || left-- != 0) return;
    happened = true;
    throw std::bad_alloc();
}

void from_allocation(int count)
{
    left = count;
    happened = false;
    allocations::watch(fail);
}

}  // namespace lack

}  // namespace

TEST_P(CallFrame, ArmsTheTrapsAndSetsBlasToOneThreadDuringACall)
{
    openblas_set_num_threads(2);
    seen::start();
    run();
    allocations::ignore();
    EXPECT_GT(seen::framed_on_caller, 0);
}

TEST_P(CallFrame, DisarmsTheTrapsAndPutsTheBlasThreadsBackAfterACall)
{
    for (const int blas_threads : {1, 2, 3}) {
        openblas_set_num_threads(blas_threads);
        run_with_team();
        EXPECT_EQ(0, fegetexcept());
        EXPECT_EQ(blas_threads, openblas_get_num_threads());
    }
}

TEST_P(CallFrame, DisarmsTrapsThatTheHostHadArmed)
{
    for (const int traps : {FE_DIVBYZERO, FE_INVALID | FE_OVERFLOW, LIBRARY_TRAPS}) {
        feenableexcept(traps);
        run();
        EXPECT_EQ(0, fegetexcept());
    }
}

TEST_P(CallFrame, StandsFlagsThatTheHostLeftPending)
{
    leave_stale_flags();
    run();
    leave_stale_flags();
    run_with_team();
    EXPECT_EQ(0, fegetexcept());
}

TEST_P(CallFrame, StandsFlagsThatTheHostLeftPendingOnItsWorkers)
{
#pragma omp parallel num_threads(3)
    leave_stale_flags();
    run_with_team();
#pragma omp parallel num_threads(3)
    {
        std::feclearexcept(FE_ALL_EXCEPT);
    }
}

TEST_P(CallFrame, KeepsTheRoundingModeAndFlushToZero)
{
    std::fesetround(FE_UPWARD);
    flush_subnormals(true);
    run_with_team();
    const int rounding = std::fegetround();
    const bool flush = flushes_subnormals();
    std::fesetround(FE_TONEAREST);
    flush_subnormals(false);
    EXPECT_EQ(FE_UPWARD, rounding);
    EXPECT_TRUE(flush);
}

TEST_P(CallFrame, LeavesTheHostsTeamAsItFoundIt)
{
    // The worker gets an environment of its own: flags, rounding, flush to zero. A team of the library may be no larger than
    // two, and OpenMP may end the threads that a smaller team leaves over.
    FpState before[2], after[2];
    int traps_before[2], traps_after[2];
#pragma omp parallel num_threads(2)
    {
        const int thread = omp_get_thread_num();
        if (thread == 1) {
            leave_stale_flags();
            std::fesetround(FE_DOWNWARD);
            flush_subnormals(true);
        }
        before[thread] = FpState::now();
        traps_before[thread] = fegetexcept();
    }
    run_with_team();
#pragma omp parallel num_threads(2)
    {
        const int thread = omp_get_thread_num();
        after[thread] = FpState::now();
        traps_after[thread] = fegetexcept();
        std::fesetenv(FE_DFL_ENV);
    }
    for (int thread = 0; thread < 2; ++thread) {
        EXPECT_EQ(0, traps_before[thread]);
        EXPECT_EQ(0, traps_after[thread]) << thread;
        if (thread == 0) continue;  // the caller: flags are cleared, and new ones set
        EXPECT_EQ(before[thread], after[thread]) << thread;
    }
}

TEST_P(CallFrame, LeavesNoTrapArmedOnTheThreadsThatItStarts)
{
    // A team larger than any before: its threads are started inside the call, by a thread with armed traps.
    run_with_team();
    int traps[8] = {};
#pragma omp parallel num_threads(8)
    traps[omp_get_thread_num()] = fegetexcept();
    for (int thread = 0; thread < 8; ++thread) EXPECT_EQ(0, traps[thread]) << thread;
}

TEST_P(CallFrame, HandsOnLackOfMemoryWithTrapsArmedAndBlasAtOneThread)
{
    run_with_team();  // the banner and the team exist
    // One allocation after the other fails, until the call needs no more.
    for (int count = 0;; ++count) {
        ASSERT_LT(count, 10000);
        openblas_set_num_threads(2);
        lack::from_allocation(count);
        bool caught = false;
        try {
            run();
        } catch (const std::bad_alloc&) {
            caught = true;
        }
        allocations::ignore();
        const int traps = fegetexcept(), blas_threads = openblas_get_num_threads();
        fedisableexcept(FE_ALL_EXCEPT);
        if (!lack::happened) {
            EXPECT_GT(count, 0);
            break;
        }
        EXPECT_TRUE(caught) << count;
        EXPECT_EQ(traps_of_a_call(), traps) << count;
        EXPECT_EQ(1, blas_threads) << count;

        // The next call works, and puts back what the host set meanwhile.
        openblas_set_num_threads(2);
        run();
        EXPECT_EQ(0, fegetexcept());
        EXPECT_EQ(2, openblas_get_num_threads());
    }
}

INSTANTIATE_TEST_SUITE_P(Calls, CallFrame, testing::ValuesIn(FRAMED), framed_name);

namespace {

class Team : public testing::TestWithParam<Entry> {
protected:
    void TearDown() override { allocations::ignore(); }
};

}  // namespace

TEST_P(Team, ArmsTheTrapsOnEveryWorker)
{
    const Network net(small().text());
    const Batch batch = random_batch(small(), ROWS, 3, 1);
    ASSERT_EQ(0, vemk_setpar(net, 3, ROWS_OF_A_SLICE));
    seen::start();
    results_of(GetParam(), net, batch);
    allocations::ignore();
    EXPECT_GT(seen::on_workers, 0);
    EXPECT_EQ(0, seen::unarmed_on_workers);
}

namespace {

void expect_no_output_when_memory_lacks(const Entry& entry, const plain::Network& network)
{
    const Network net(network.text());
    const Batch batch = random_batch(network, ROWS, 3, 1);
    ASSERT_EQ(0, vemk_setpar(net, 3, ROWS_OF_A_SLICE));
    const Numbers expected = results_of(entry, net, batch);
    double value = 0;
    Numbers array(entry.array_size(batch.call(), 2));
    Call call = batch.call();
    call.value = &value;
    call.array = array.data();
    for (int count = 0;; ++count) {
        ASSERT_LT(count, 10000);
        value = -5;
        std::fill(array.begin(), array.end(), -5);
        openblas_set_num_threads(2);
        lack::from_allocation(count);
        bool caught = false;
        try {
            EXPECT_EQ(0, entry.run(net, call));
        } catch (const std::bad_alloc&) {
            caught = true;
        }
        allocations::ignore();
        fedisableexcept(FE_ALL_EXCEPT);
        openblas_set_num_threads(1);
        if (!lack::happened) break;
        EXPECT_TRUE(caught) << count;
        EXPECT_EQ(-5.0, value) << count;
        EXPECT_EQ(bits_of(Numbers(array.size(), -5)), bits_of(array)) << count;
    }
    if (std::string("vemk_g") == entry.name) array.insert(array.begin(), value);
    EXPECT_EQ(bits_of(expected), bits_of(array));
}

}  // namespace

TEST_P(Team, WritesNoOutputWhenMemoryLacks)
{
    expect_no_output_when_memory_lacks(GetParam(), small());
}

// The rows of its gradient are dealt out.
TEST_P(Team, WritesNoOutputOfALargeNetworkWhenMemoryLacks)
{
    plain::Network tall = small();
    tall.sizes = {150, 120};
    expect_no_output_when_memory_lacks(GetParam(), tall);
}

INSTANTIATE_TEST_SUITE_P(Entries,
                         Team,
                         testing::ValuesIn(entries_where([](const Entry& e) {
                             return e.runs_slices;
                         })),
                         name_of);

TEST(InitVEMKNet, ThrowsWhereverMemoryLacks)
{
    // Names that do not fit into a string without an allocation.
    const std::string text = "3 2 3 1 8 3 5 4 softplus_shifted sum_log_dnorm_fat";
    static std::atomic<int> left;
    const auto fail = [] {
        if (left-- == 0) throw std::bad_alloc();
    };
    for (int count = 0;; ++count) {
        ASSERT_LT(count, 10000);
        VEMKNInfo* net = nullptr;
        bool caught = false;
        const Heard heard = listen([&] {
            left = count;
            allocations::watch(fail);
            try {
                net = initVEMKNet(text.data(), static_cast<int>(text.size()));
            } catch (const std::bad_alloc&) {
                caught = true;
            }
            allocations::ignore();
        });
        fedisableexcept(FE_ALL_EXCEPT);
        openblas_set_num_threads(1);
        EXPECT_EQ("", heard.err) << count;
        EXPECT_EQ(std::string::npos, heard.out.find("invalid")) << count;
        const bool failed = left < 0;
        EXPECT_EQ(failed, caught) << count;
        EXPECT_EQ(failed ? 0u : 5u + 15 + 4 + 20 + 2 + 8, vemk_numel(net)) << count;
        releaseVEMKNet(net);
        if (!failed) break;
    }
}
