#include <gtest/gtest.h>

#include <atomic>
#include <iostream>
#include <thread>

#include "support/calls.h"
#include "support/child.h"

// More threads than OpenBLAS has buffers for. Beyond its limit it would end the process.

namespace {

plain::Network medium()
{
    return {.numin = 5,
            .numout = 2,
            .sizes = {5, 8, 6},
            .activation = "softplus",
            .norm = "sum_log_dnorm_fat"};
}

}  // namespace

SCENE(calls_from_many_threads)
{
    const int hosts = std::stoi(arguments.at(0));
    const auto threads = static_cast<unsigned>(std::stoul(arguments.at(1)));
    const Network net(medium().text());
    vemk_setpar(net, threads, 8);
    const Batch batch = random_batch(medium(), 400, 5, 1);
    const Entry& entry = entry_named("vemk_g");
    const auto expected = bits_of(results_of(entry, net, batch));

    std::atomic<int> ready{0}, wrong{0};
    std::vector<std::thread> all;
    for (int i = 0; i < hosts; ++i) {
        all.emplace_back([&] {
            ++ready;
            while (ready < hosts) std::this_thread::yield();
            for (int repetition = 0; repetition < 4; ++repetition) {
                if (bits_of(results_of(entry, net, batch)) != expected) ++wrong;
            }
        });
    }
    for (std::thread& host : all) host.join();
    std::cout << wrong << " wrong\n";
}

TEST(Crowd, OfHostThreadsWithTeamsDoesNotEndTheProcess)
{
    const child::Outcome outcome = child::play("calls_from_many_threads", {"100", "16"});
    EXPECT_TRUE(outcome.exited_with(0)) << outcome.description();
    EXPECT_EQ("VEMKN 2026.9.1175 (C) 2026 the VEMKN developers\n0 wrong\n", outcome.out);
    EXPECT_EQ("", outcome.err);
}

TEST(Crowd, OfHostThreadsAloneDoesNotEndTheProcess)
{
    const child::Outcome outcome = child::play("calls_from_many_threads", {"200", "1"});
    EXPECT_TRUE(outcome.exited_with(0)) << outcome.description();
    EXPECT_EQ("VEMKN 2026.9.1175 (C) 2026 the VEMKN developers\n0 wrong\n", outcome.out);
    EXPECT_EQ("", outcome.err);
}

TEST(Crowd, OfOneTeamDoesNotEndTheProcess)
{
    const child::Outcome outcome = child::play("calls_from_many_threads", {"1", "99999"});
    EXPECT_TRUE(outcome.exited_with(0)) << outcome.description();
    EXPECT_EQ("VEMKN 2026.9.1175 (C) 2026 the VEMKN developers\n0 wrong\n", outcome.out);
}
