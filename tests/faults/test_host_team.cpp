#include <gtest/gtest.h>
#include <omp.h>

#include <atomic>
#include <csignal>
#include <iostream>

#include "support/all_entries.h"
#include "support/child.h"

// The library and its host share one pool of OpenMP threads, and traps belong to threads.

namespace {

plain::Network linear()
{
    return {.numin = 2, .numout = 1, .sizes = {2, 2}, .activation = "id", .norm = "sum"};
}

// Hidden units of 2 in every row but the last, where 1e160 * 1e160 is one of their products.
Request overflow_in_the_last_row(unsigned nrows)
{
    Request q = random_request(linear(), nrows, 2, 2, 1);
    q.batch.w = {0, 0, 1e160, 1e160, 1e160, 1e160, 0, 1, 1};
    for (double& x : q.batch.x) x = 1e-160;
    q.batch.x.back() = 1e160;
    return q;
}

}  // namespace

SCENE(divides_by_zero_in_a_region_of_its_own)
{
    const Network net(usual_network().text());
    vemk_setpar(net, 4, 8);
    any_entry_named(arguments.at(0)).run(net, random_request(usual_network(), 203, 5, 2, 1));
    std::atomic<int> infinite{0};
    // As many threads as the library had, and more.
    for (const int threads : {4, 8}) {
#pragma omp parallel num_threads(threads)
        {
            volatile double zero = 0;
            if (1 / zero == INF) ++infinite;
        }
    }
    std::cout << infinite << " infinite" << std::endl;
}

TEST(HostRegionFault, HostDividesByZeroInItsOwnRegionAfterTheFirstTeam_InfAndNoSignal)
{
    for (const AnyEntry& entry : ALL_ENTRIES) {
        const child::Outcome outcome =
            child::play("divides_by_zero_in_a_region_of_its_own", {entry.name});
        EXPECT_TRUE(outcome.exited_with(0)) << entry.name << ": " << outcome.description();
        EXPECT_NE(std::string::npos, outcome.out.find("12 infinite\n")) << outcome.description();
    }
}

// entry, threads
SCENE(overflows_in_a_team_that_the_host_started)
{
    std::atomic<int> started{0};
#pragma omp parallel num_threads(4)
    ++started;
    const Network net(linear().text());
    // One row a share: the calling thread has the first, a worker the last.
    vemk_setpar(net, static_cast<unsigned>(std::stoul(arguments.at(1))), 1);
    any_entry_named(arguments.at(0)).run(net, overflow_in_the_last_row(4));
    std::cout << "returned from a team of " << started << std::endl;
}

TEST(HostPoolFault, WorkersSliceOverflowsInTheHostsPool_SigfpeAsWithOneThread)
{
    for (const AnyEntry& entry : ALL_ENTRIES) {
        // Those that run no network have nothing that overflows.
        if (entry.is_norm_alone()) continue;
        for (const char* threads : {"1", "4"}) {
            const child::Outcome outcome =
                child::play("overflows_in_a_team_that_the_host_started", {entry.name, threads});
            EXPECT_TRUE(outcome.killed_by(SIGFPE))
                << entry.name << ", threads " << threads << ": " << outcome.description();
        }
    }
}
