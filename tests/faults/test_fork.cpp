#include <cblas.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

#include "support/all_entries.h"
#include "support/allocations.h"
#include "support/fp_state.h"

// A host that forks. In the child a call runs on one thread, with the same results.

namespace {

// Whether f returns true in a child of this process.
bool in_child(const std::function<bool()>& f)
{
    const pid_t pid = fork();
    if (pid == 0) {
        alarm(60);  // a child that hangs is a failure too
        _exit(f() ? 0 : 1);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    if (WIFSIGNALED(status)) ADD_FAILURE() << strsignal(WTERMSIG(status));
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

std::vector<std::uint64_t> everything(VEMKNInfo* net, const Request& q)
{
    std::vector<std::uint64_t> all;
    for (const auto& patterns : all_bits(net, q)) {
        EXPECT_FALSE(patterns.empty());
        all.insert(all.end(), patterns.begin(), patterns.end());
    }
    return all;
}

class ForkFault : public testing::Test {
protected:
    ForkFault() { vemk_setpar(net_, 4, 8); }

    std::vector<std::uint64_t> everything() const { return ::everything(net_, request_); }

    bool same(const std::vector<std::uint64_t>& expected) const { return everything() == expected; }

private:
    Network net_{usual_network().text()};
    Request request_ = random_request(usual_network(), 203, 5, 2, 1);
};

}  // namespace

TEST_F(ForkFault, ForkAfterAThreadedCall_TheChildGetsTheSameBits)
{
    const auto expected = everything();
    EXPECT_TRUE(in_child([&] { return same(expected); }));
    // And the parent still has its team.
    EXPECT_TRUE(same(expected));
}

TEST_F(ForkFault, ForkBeforeTheParentHadATeam_TheChildGetsTheSameBits)
{
    std::vector<std::uint64_t> of_child;
    int channel[2];
    ASSERT_EQ(0, pipe(channel));
    EXPECT_TRUE(in_child([&] {
        const auto bits = everything();
        const std::size_t bytes = bits.size() * sizeof(bits[0]);
        return write(channel[1], bits.data(), bytes) == static_cast<ssize_t>(bytes);
    }));
    const auto expected = everything();
    of_child.resize(expected.size());
    const std::size_t bytes = expected.size() * sizeof(expected[0]);
    ASSERT_EQ(static_cast<ssize_t>(bytes), read(channel[0], of_child.data(), bytes));
    EXPECT_EQ(expected, of_child);
}

TEST_F(ForkFault, ForkInTheChild_TheGrandchildGetsTheSameBits)
{
    const auto expected = everything();
    EXPECT_TRUE(in_child([&] {
        return same(expected) && in_child([&] { return same(expected); }) && same(expected);
    }));
}

TEST_F(ForkFault, CallInTheChild_TrapsOffAndBlasThreadsAsTheChildSetThem)
{
    openblas_set_num_threads(2);
    everything();
    EXPECT_TRUE(in_child([&] {
        openblas_set_num_threads(2);
        everything();
        return fegetexcept() == 0 && openblas_get_num_threads() == 2;
    }));
    openblas_set_num_threads(1);
}

TEST_F(ForkFault, HandleMadeInTheChild_TheSameBits)
{
    const auto expected = everything();
    EXPECT_TRUE(in_child([&] {
        const Network other(usual_network().text());
        vemk_setpar(other, 4, 8);
        return ::everything(other, random_request(usual_network(), 203, 5, 2, 1)) == expected;
    }));
}

namespace {

// Stops a call of another thread in its middle.
struct Stage {
    std::mutex mutex;
    std::condition_variable changed;
    bool entered = false, may_leave = false;
};

Stage stage;
thread_local bool stops = false;

void stop_in_the_middle()
{
    if (!stops || !in_the_middle_of_a_call()) return;
    stops = false;
    std::unique_lock lock(stage.mutex);
    stage.entered = true;
    stage.changed.notify_all();
    stage.changed.wait(lock, [] { return stage.may_leave; });
}

}  // namespace

TEST_F(ForkFault, ForkDuringACallOfAnotherThread_TheChildHasTheCountsOfTheHost)
{
    const auto expected = everything();
    openblas_set_num_threads(2);
    allocations::watch(stop_in_the_middle);
    std::thread other([this] {
        leave_stale_flags();
        stops = true;
        everything();
    });
    {
        std::unique_lock lock(stage.mutex);
        stage.changed.wait(lock, [] { return stage.entered; });
    }
    EXPECT_TRUE(in_child([&] {
        allocations::ignore();
        return same(expected) && fegetexcept() == 0 && openblas_get_num_threads() == 2 &&
               same(expected) && openblas_get_num_threads() == 2;
    }));
    {
        const std::lock_guard lock(stage.mutex);
        stage.may_leave = true;
        stage.changed.notify_all();
    }
    other.join();
    allocations::ignore();
    EXPECT_EQ(2, openblas_get_num_threads());
    openblas_set_num_threads(1);
    EXPECT_TRUE(same(expected));
}
