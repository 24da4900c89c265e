#include <cblas.h>
#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <new>
#include <thread>

#include "support/allocations.h"
#include "support/calls.h"
#include "support/fp_state.h"

// Calls of several host threads at the same time.

namespace {

plain::Network small()
{
    return {.numin = 3,
            .numout = 2,
            .sizes = {3, 4},
            .activation = "softplus",
            .norm = "sum_log_dnorm_fat"};
}

// A door that threads wait at.
class Door {
public:
    void open()
    {
        const std::lock_guard lock(mutex_);
        open_ = true;
        changed_.notify_all();
    }

    void wait()
    {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return open_; });
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool open_ = false;
};

// Runs a call that stands still in its middle until it may go on; and one that runs out of memory in its middle.
struct Stage {
    Door entered, may_leave;
    std::atomic<bool> waits{true};
};

Stage* stage = nullptr;
thread_local bool stops_in_the_middle = false;
thread_local bool lacks_memory = false;

void direct()
{
    if (fegetexcept() != LIBRARY_TRAPS) return;  // not in the middle yet
    if (stops_in_the_middle && stage->waits.exchange(false)) {
        stage->entered.open();
        stage->may_leave.wait();
    }
    if (lacks_memory) throw std::bad_alloc();
}

class Overlap : public testing::Test {
protected:
    void SetUp() override
    {
        stage = &stage_;
        openblas_set_num_threads(2);
        allocations::watch(direct);
    }

    void TearDown() override
    {
        allocations::ignore();
        openblas_set_num_threads(1);
        stage = nullptr;
    }

    void call() const
    {
        double value = 0;
        EXPECT_EQ(0, vemk_norm(net_, r_.data(), 4, 5, &value));
    }

    // A call in a thread of its own, in its middle when this returns.
    std::thread slow_call()
    {
        std::thread thread([this] {
            stops_in_the_middle = true;
            call();
        });
        stage_.entered.wait();
        return thread;
    }

    // The same, but memory lacks when it goes on.
    std::thread slow_failing_call()
    {
        std::thread thread([this] {
            stops_in_the_middle = lacks_memory = true;
            EXPECT_THROW(call(), std::bad_alloc);
        });
        stage_.entered.wait();
        return thread;
    }

    void failing_call() const
    {
        std::thread([this] {
            lacks_memory = true;
            EXPECT_THROW(call(), std::bad_alloc);
        }).join();
    }

    void finish(std::thread& thread)
    {
        stage_.may_leave.open();
        thread.join();
    }

private:
    Stage stage_;
    Network net_{small().text()};
    Numbers r_ = Numbers(20, 0.5);
};

}  // namespace

TEST_F(Overlap, KeepsBlasAtOneThreadUntilTheLastCallIsOut)
{
    std::thread first = slow_call();
    EXPECT_EQ(1, openblas_get_num_threads());
    call();
    EXPECT_EQ(1, openblas_get_num_threads());
    finish(first);
    EXPECT_EQ(2, openblas_get_num_threads());
}

TEST_F(Overlap, SurvivesAnExceptionOfTheOtherCall)
{
    std::thread first = slow_call();
    failing_call();
    EXPECT_EQ(1, openblas_get_num_threads());
    finish(first);
    EXPECT_EQ(2, openblas_get_num_threads());
}

TEST_F(Overlap, LeavesBlasAtOneThreadWhenTheLastCallFails)
{
    std::thread first = slow_failing_call();
    call();
    EXPECT_EQ(1, openblas_get_num_threads());
    finish(first);
    EXPECT_EQ(1, openblas_get_num_threads());
    // And counts right from there on.
    openblas_set_num_threads(2);
    call();
    EXPECT_EQ(2, openblas_get_num_threads());
}

TEST_F(Overlap, CountsRightAfterManyExceptions)
{
    for (int i = 0; i < 200; ++i) failing_call();
    openblas_set_num_threads(2);
    call();
    EXPECT_EQ(2, openblas_get_num_threads());
}

TEST_F(Overlap, DoesNotSpreadTrapsToTheOtherThread)
{
    std::thread first = slow_call();
    EXPECT_EQ(0, fegetexcept());
    call();
    EXPECT_EQ(0, fegetexcept());
    finish(first);
    EXPECT_EQ(0, fegetexcept());
}

namespace {

// Every entry point from several host threads at once, as often as told.
void expect_same_bits(const std::vector<VEMKNInfo*>& nets, int repetitions)
{
    const Batch batch = random_batch(small(), 67, 3, 2);
    std::vector<std::vector<std::uint64_t>> expected;
    for (const Entry& entry : ENTRIES) {
        expected.push_back(bits_of(results_of(entry, nets[0], batch)));
    }
    std::atomic<int> wrong{0};
    std::vector<std::thread> hosts;
    for (VEMKNInfo* const net : nets) {
        hosts.emplace_back([&, net] {
            for (int i = 0; i < repetitions; ++i) {
                for (std::size_t e = 0; e < std::size(ENTRIES); ++e) {
                    if (bits_of(results_of(ENTRIES[e], net, batch)) != expected[e]) ++wrong;
                }
                if (fegetexcept() != 0) ++wrong;
            }
        });
    }
    for (std::thread& host : hosts) host.join();
    EXPECT_EQ(0, wrong);
}

}  // namespace

TEST(OverlappingCalls, GiveTheSameBitsOnOneHandle)
{
    openblas_set_num_threads(2);
    const Network net(small().text());
    ASSERT_EQ(0, vemk_setpar(net, 3, 8));
    expect_same_bits({net, net, net, net}, 50);
    EXPECT_EQ(2, openblas_get_num_threads());
}

TEST(OverlappingCalls, GiveTheSameBitsOnDifferentHandles)
{
    openblas_set_num_threads(2);
    const Network a(small().text()), b(small().text()), c(small().text()), d(small().text());
    for (const Network* const net : {&a, &b, &c, &d}) ASSERT_EQ(0, vemk_setpar(*net, 2, 8));
    expect_same_bits({a, b, c, d}, 50);
    EXPECT_EQ(2, openblas_get_num_threads());
}

TEST(OverlappingCalls, MayCreateAndReleaseHandlesMeanwhile)
{
    const Network net(small().text());
    ASSERT_EQ(0, vemk_setpar(net, 2, 8));
    std::atomic<bool> done{false};
    std::thread maker([&] {
        while (!done) {
            const Network other(small().text());
            EXPECT_EQ(small().numel(), vemk_numel(other));
        }
    });
    expect_same_bits({net, net}, 50);
    done = true;
    maker.join();
}
