#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "api/computing_call.h"
#include "support/calls.h"

// How many calls run at once: 64 of those that reach OpenBLAS, and any number of others.

namespace {

constexpr int HOSTS = VEMKN::MAX_THREADS_INSIDE + 6;

// The most that were in a call together, of HOSTS threads that each stay in one until all are, at most so long.
int most_at_once(const plain::Network& network, std::chrono::milliseconds longest)
{
    const Network net(network.text());
    const Numbers w(vemk_numel(net)), x(network.numin), y(network.numout);
    const VEMKN::Batch batch{x.data(), y.data(), 1, network.numin, network.numout};
    std::atomic<int> inside{0}, most{0};
    const auto stay = [&](const auto&...) {
        const int now = ++inside;
        for (int before = most; before < now && !most.compare_exchange_weak(before, now);) {
        }
        const auto end = std::chrono::steady_clock::now() + longest;
        while (most < HOSTS && std::chrono::steady_clock::now() < end) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        --inside;
    };
    VEMKNInfo* const handle = net;
    std::vector<std::thread> all;
    for (int i = 0; i < HOSTS; ++i) {
        all.emplace_back(
            [&] { VEMKN::computing_call(*handle, w.data(), batch, {}, VEMKN::Needs{}, stay); });
    }
    for (std::thread& host : all) host.join();
    return most;
}

}  // namespace

TEST(ThreadLimit, HoldsForCallsThatReachOpenBlas)
{
    const plain::Network wide{.numin = 400, .numout = 1, .sizes = {400, 2}};
    EXPECT_EQ(VEMKN::MAX_THREADS_INSIDE, most_at_once(wide, std::chrono::seconds(2)));
}

TEST(ThreadLimit, DoesNotHoldForOthers)
{
    const plain::Network narrow{.numin = 384, .numout = 1, .sizes = {384, 2}};
    EXPECT_EQ(HOSTS, most_at_once(narrow, std::chrono::seconds(60)));
}
