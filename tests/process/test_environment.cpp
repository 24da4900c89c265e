#include <gtest/gtest.h>

#include <iostream>
#include <sstream>

#include "support/calls.h"
#include "support/child.h"

// Results in processes whose environment says how many threads there may be.

namespace {

plain::Network medium()
{
    return {.numin = 5,
            .numout = 2,
            .sizes = {5, 8, 6},
            .activation = "softplus",
            .norm = "sum_log_dnorm_fat"};
}

using Environment = std::map<std::string, std::string>;

std::string bits_under(const Environment& environment)
{
    const child::Outcome outcome = child::play("prints_results", {}, {.environment = environment});
    EXPECT_TRUE(outcome.exited_with(0)) << outcome.description();
    EXPECT_EQ("", outcome.err);
    return outcome.out;
}

}  // namespace

SCENE(prints_results)
{
    const Network net(medium().text());
    const Batch batch = random_batch(medium(), 203, 5, 1);
    for (const unsigned threads : {2u, 8u, 99999u}) {
        vemk_setpar(net, threads, 8);
        for (const Entry& entry : ENTRIES) {
            for (const std::uint64_t pattern : bits_of(results_of(entry, net, batch))) {
                std::cout << std::hex << pattern << "\n";
            }
        }
    }
}

TEST(Environment, DoesNotChangeABitOfTheResults)
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

TEST(Environment, LosesNoSliceWhereTheTeamIsSmallerThanAsked)
{
    for (const char* limit : {"1", "3"}) {
        const child::Outcome outcome = child::play(
            "works_through_many_slices", {}, {.environment = {{"OMP_THREAD_LIMIT", limit}}});
        EXPECT_TRUE(outcome.exited_with(0)) << outcome.description();
        EXPECT_EQ("VEMKN 2026.9.1175 (C) 2026 the VEMKN developers\ndone\n", outcome.out);
    }
}

TEST(OpenBlasVariant, OfAnyKindGivesRightResults)
{
    // Systems ship OpenBLAS with threads of its own, with OpenMP and without threads; a host may load any of them.
    std::istringstream folders(VEMKN_OPENBLAS_FOLDERS);
    std::string folder;
    int variants = 0;
    while (std::getline(folders, folder, ':')) {
        const child::Outcome outcome = child::play(
            "works_through_many_slices", {}, {.environment = {{"LD_LIBRARY_PATH", folder}}});
        EXPECT_TRUE(outcome.exited_with(0)) << folder << ": " << outcome.description();
        EXPECT_EQ("VEMKN 2026.9.1175 (C) 2026 the VEMKN developers\ndone\n", outcome.out) << folder;
        ++variants;
    }
    if (variants == 0) GTEST_SKIP() << "no other variant is installed";
}
