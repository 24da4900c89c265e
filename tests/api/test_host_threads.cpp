#include <cblas.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "support/calls.h"
#include "support/fp_state.h"

// Calls of several host threads at the same time, as they come.

namespace {

plain::Network small()
{
    return {.numin = 3,
            .numout = 2,
            .sizes = {3, 4},
            .activation = "softplus",
            .norm = "sum_log_dnorm_fat"};
}

// Every entry point from several host threads at once, as often as asked.
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
