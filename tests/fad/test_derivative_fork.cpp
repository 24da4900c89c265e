#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <functional>
#include <thread>

#include "jacobian/derivative_calls.h"

// Derivative calls in the child of a fork, where only the forking thread lives on.

namespace {

// 4-6-1
Problem problem()
{
    Random random(1);
    Problem p;
    p.shape = {.numin = 4, .sizes = {4, 6}, .activation = "atan"};
    p.nrows = 20;
    p.xcols = 4;
    p.fill(random);
    return p;
}

// The work's verdict as the child's exit status; a child that hangs is ended by an alarm.
bool holds_in_child(const std::function<bool()>& work)
{
    const pid_t pid = fork();
    if (pid == 0) {
        alarm(60);
        _exit(work() ? 0 : 1);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

bool same_products(
    VEMKNInfo* net, const Problem& p, unsigned nv, const Numbers& hv, const Numbers& jac)
{
    const Numbers v(std::size_t{p.nw()} * nv, 0.5);
    return bits_of(call_Hv(net, p, v, nv).hv) == bits_of(hv) &&
           bits_of(call_Jv(net, p, v, nv).jac) == bits_of(jac);
}

}  // namespace

TEST(DerivativeFork, TheChildGetsTheSameBitsWithAnyNumberOfTangents)
{
    const Problem p = problem();
    const Network net(p.shape.text());
    ASSERT_EQ(0, vemk_setpar(net, 3, 4));
    for (const unsigned nv : {1u, 4u}) {
        const Numbers v(std::size_t{p.nw()} * nv, 0.5);
        const Numbers hv = call_Hv(net, p, v, nv).hv, jac = call_Jv(net, p, v, nv).jac;
        // The parent's latest call carried another number of tangents.
        call_Hv(net, p, Numbers(2 * std::size_t{p.nw()}), 2);
        EXPECT_TRUE(holds_in_child([&] { return same_products(net, p, nv, hv, jac); }));
        // And the parent goes on as before.
        EXPECT_TRUE(same_products(net, p, nv, hv, jac));
    }
}

TEST(DerivativeFork, TheChildMayCreateHandlesAndFork)
{
    const Problem p = problem();
    const Network net(p.shape.text());
    const Numbers v(std::size_t{p.nw()} * 2, 0.5);
    const Numbers hv = call_Hv(net, p, v, 2).hv, jac = call_Jv(net, p, v, 2).jac;
    EXPECT_TRUE(holds_in_child([&] {
        const Network other(p.shape.text());
        return g_ndd == 1 && same_products(other, p, 2, hv, jac) &&
               holds_in_child([&] { return same_products(other, p, 2, hv, jac); });
    }));
}

TEST(DerivativeFork, TheChildDoesNotWaitForCallsThatTheParentHadInFlight)
{
    const Problem p = problem();
    const Network net(p.shape.text()), busy(p.shape.text());
    const Numbers v(std::size_t{p.nw()} * 2, 0.5);
    const Numbers hv = call_Hv(net, p, v, 2).hv, jac = call_Jv(net, p, v, 2).jac;

    // The calls of the other thread carry three tangents, so that one of them is nearly always in flight with a count
    // that the child's do not share.
    std::atomic<bool> stop{false};
    std::atomic<int> calls{0};
    std::thread other([&] {
        const Numbers three(std::size_t{p.nw()} * 3, 0.5);
        while (!stop) {
            call_Hv(busy, p, three, 3);
            ++calls;
        }
    });
    while (calls == 0) std::this_thread::yield();
    int good = 0;
    for (int time = 0; time < 20; ++time) {
        good += holds_in_child([&] { return same_products(net, p, 2, hv, jac); });
    }
    stop = true;
    other.join();
    EXPECT_EQ(20, good);
    EXPECT_TRUE(same_products(net, p, 2, hv, jac));
}
