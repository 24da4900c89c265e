#include <gtest/gtest.h>

#include <atomic>

#include "support/all_entries.h"
#include "support/allocations.h"

// How often a call takes memory from the system. Blocks are not given back before its end, so what were taken anew for every
// slice, or for every pass, would show as more of them.

namespace {

std::atomic<int> taken;

int allocations_of(const AnyEntry& entry, VEMKNInfo* net, const Request& q)
{
    const Call c = AnyEntry::call_for(q);
    Numbers numbers(entry.sizes(c).all());
    taken = 0;
    allocations::watch([] { ++taken; });
    run_into(entry, net, c, numbers.data());
    allocations::ignore();
    return taken;
}

plain::Network network(unsigned nmult)
{
    return {.numin = 8,
            .numout = 2,
            .nmult = nmult,
            .sizes = {8, 16, 8},
            .activation = "atan",
            .norm = "sum"};
}

class CallMemory : public testing::TestWithParam<AnyEntry> {};

}  // namespace

TEST_P(CallMemory, IsOneBlockOfOneThread)
{
    const Network net(network(1).text());
    for (const unsigned rows : {1u, 31u, 1000u}) {
        EXPECT_EQ(1, allocations_of(GetParam(), net, random_request(network(1), rows, 8, 2, 1)))
            << rows;
    }
}

// Of an output as wide as the layers before it the residuals and their adjoints count as well.
TEST_P(CallMemory, IsOneBlockOfOneThreadForManyOutputs)
{
    const plain::Network wide{.numin = 8, .numout = 8, .sizes = {8, 8}, .activation = "softplus"};
    const Network net(wide.text());
    for (const unsigned rows : {1u, 31u, 1000u, 1024u}) {
        EXPECT_EQ(1, allocations_of(GetParam(), net, random_request(wide, rows, 8, 1, 1))) << rows;
    }
}

TEST_P(CallMemory, DoesNotGrowWithTheSlices)
{
    for (const unsigned nmult : {1u, 2u}) {
        const Network net(network(nmult).text());
        for (const unsigned threads : {1u, 2u}) {
            ASSERT_EQ(0, vemk_setpar(net, threads, 7));
            const auto of = [&](unsigned rows) {
                return allocations_of(
                    GetParam(), net, random_request(network(nmult), rows, 8, 2, rows));
            };
            of(3000);  // what a team makes once
            EXPECT_EQ(of(3000), of(100'000)) << threads << " threads, nmult " << nmult;
        }
    }
}

TEST_P(CallMemory, DoesNotGrowWithWhatIsNotFinite)
{
    const Network net(network(1).text());
    vemk_quiet(net, 1);
    ASSERT_EQ(0, vemk_setpar(net, 1, 7));
    const auto of = [&](unsigned rows) {
        Request q = random_request(network(1), rows, 8, 2, rows);
        for (double& x : q.batch.x) x = INF;
        return allocations_of(GetParam(), net, q);
    };
    EXPECT_EQ(of(3000), of(100'000));
}

TEST_P(CallMemory, TakesNoBlockForAPass)
{
    const auto of = [&](unsigned nmult) {
        const Network net(network(nmult).text());
        return allocations_of(GetParam(), net, random_request(network(nmult), 20, 8, 2, 1));
    };
    EXPECT_EQ(of(3), of(200));
}

INSTANTIATE_TEST_SUITE_P(Entries,
                         CallMemory,
                         testing::ValuesIn(ALL_ENTRIES),
                         [](const auto& entry) { return std::string(entry.param.name); });
