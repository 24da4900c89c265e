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

// Two calls at the same time, one of them held in its middle.

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
    if (!(stops_in_the_middle || lacks_memory) || !in_the_middle_of_a_call()) return;
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
            leave_stale_flags();
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
            leave_stale_flags();
            stops_in_the_middle = lacks_memory = true;
            EXPECT_THROW(call(), std::bad_alloc);
        });
        stage_.entered.wait();
        return thread;
    }

    void failing_call() const
    {
        std::thread([this] {
            leave_stale_flags();
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
