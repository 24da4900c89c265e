#include <gtest/gtest.h>

#include <atomic>
#include <iostream>

#include "support/all_entries.h"
#include "support/child.h"

// Results in processes whose environment says how many threads there may be.

namespace {

void print(const std::vector<std::vector<std::uint64_t>>& lists)
{
    for (const auto& patterns : lists) {
        if (patterns.empty()) std::cout << "refused\n";
        for (const std::uint64_t pattern : patterns) std::cout << std::hex << pattern << "\n";
    }
}

using Environment = std::map<std::string, std::string>;

std::string bits_under(const Environment& environment)
{
    const child::Outcome outcome = child::play("prints_results", {}, {.environment = environment});
    EXPECT_TRUE(outcome.exited_with(0)) << outcome.description();
#if !defined(__clang__)  // whose OpenMP prints a line for every team that is smaller than asked
    EXPECT_EQ("", outcome.err);
#endif
    return outcome.out;
}

}  // namespace

SCENE(prints_results)
{
    const Network net(usual_network().text());
    const Request q = random_request(usual_network(), 203, 5, 2, 1);
    for (const unsigned threads : {2u, 8u, 99999u}) {
        vemk_setpar(net, threads, 8);
        print(all_bits(net, q));
    }
}

TEST(ThreadLimitsFault, ThreadLimitsInTheEnvironment_TheSameBits)
{
    const std::string expected = bits_under({});
    const Environment environments[] = {
        {{"OMP_THREAD_LIMIT", "1"}},
        {{"OMP_THREAD_LIMIT", "2"}},
        {{"OMP_THREAD_LIMIT", "5"}},
        {{"OMP_DYNAMIC", "true"}},
        {{"OMP_NUM_THREADS", "1"}},
        {{"OMP_NUM_THREADS", "7"}},
        {{"OMP_MAX_ACTIVE_LEVELS", "0"}},
        {{"OMP_SCHEDULE", "dynamic,3"}},
        {{"OMP_WAIT_POLICY", "passive"}},
        {{"OPENBLAS_NUM_THREADS", "1"}},
        {{"OPENBLAS_NUM_THREADS", "4"}},
    };
    for (const Environment& environment : environments) {
        const auto& [name, value] = *environment.begin();
        EXPECT_EQ(expected, bits_under(environment)) << name << "=" << value;
    }
}

SCENE(calls_inside_a_host_region)
{
    const Network net(usual_network().text());
    vemk_setpar(net, 4, 8);
    const Request q = random_request(usual_network(), 203, 5, 2, 1);
    const auto expected = all_bits(net, q);
    std::atomic<int> wrong{0}, calls{0};
#pragma omp parallel num_threads(3)
    for (int repetition = 0; repetition < 10; ++repetition, ++calls) {
        if (all_bits(net, q) != expected) ++wrong;
    }
    // And one level deeper.
#pragma omp parallel num_threads(2)
#pragma omp parallel num_threads(2)
    {
        if (all_bits(net, q) != expected) ++wrong;
        ++calls;
    }
    std::cout << calls << " calls, " << wrong << " wrong" << std::endl;
}

TEST(ThreadLimitsFault, CallsInsideARegionOfTheHost_TheSameBits)
{
    // Levels: how many regions inside each other may have teams.
    const std::pair<const char*, int> levels[] = {{"1", 32}, {"2", 34}, {"3", 34}};
    for (const auto& [level, calls] : levels) {
        const child::Outcome outcome = child::play(
            "calls_inside_a_host_region", {}, {.environment = {{"OMP_MAX_ACTIVE_LEVELS", level}}});
        EXPECT_TRUE(outcome.exited_with(0)) << outcome.description();
        const std::string said = std::to_string(calls) + " calls, 0 wrong\n";
        EXPECT_NE(std::string::npos, outcome.out.find(said)) << level << outcome.description();
    }
}

SCENE(works_through_many_slices)
{
    const plain::Network network{
        .numin = 2, .numout = 1, .sizes = {2, 2}, .activation = "atan", .norm = "sum"};
    const Network net(network.text());
    vemk_setpar(net, 99999, 1);
    const Batch batch = random_batch(network, 20000, 2, 6);
    for (const Entry& entry : ENTRIES) {
        const Numbers computed = results_of(entry, net, batch);
        const plain::Reals truth = truth_of(entry, network, batch);
        for (std::size_t i = 0; i < truth.size(); ++i) {
            // 20,000 sums.
            if (!(std::fabs(static_cast<long double>(computed[i]) - truth[i]) <= 1e-11L)) {
                std::cout << entry.name << " " << i << ": " << computed[i] << "\n";
            }
        }
    }
    std::cout << "done\n";
}

TEST(ThreadLimitsFault, TeamSmallerThanAsked_NoSliceIsLost)
{
    for (const char* limit : {"1", "3"}) {
        const child::Outcome outcome = child::play(
            "works_through_many_slices", {}, {.environment = {{"OMP_THREAD_LIMIT", limit}}});
        EXPECT_TRUE(outcome.exited_with(0)) << outcome.description();
        EXPECT_EQ("VEMKN " VEMKN_VERSION " (C) 2026 the VEMKN developers\ndone\n", outcome.out);
    }
}
