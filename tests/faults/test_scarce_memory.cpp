#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdlib>
#include <iostream>
#include <new>

#include "support/all_entries.h"
#include "support/child.h"
#include "support/size.h"

// A process whose memory is limited to about what a network takes: the description is refused, or a call throws, but never is
// there half a handle.

namespace {

// Nine million weights, so 72 MB for each model of doubles, and three times as much for one of carriers.
const plain::Network large = {
    .numin = 3000, .numout = 1, .sizes = {3000, 3000}, .activation = "id", .norm = "sum"};

}  // namespace

SCENE(calls_with_little_memory)
{
    alarm(120);
    const rlim_t bytes = std::stoul(arguments.at(0)) * 1024;
    const rlimit limit{bytes, bytes};
    setrlimit(RLIMIT_AS, &limit);
    try {
        const Network net(large.text());
        const Numbers x(3000), y(1);
        Call c{.nw = static_cast<unsigned>(vemk_numel(net)),
               .x = x.data(),
               .y = y.data(),
               .nrows = 1,
               .xcols = 3000,
               .ycols = 1};
        if (c.nw == 0) std::cout << "no network\n";
        for (const AnyEntry& entry : ALL_ENTRIES) {
            try {
                Numbers numbers(entry.sizes(c).all());
                std::cout << entry.name << " " << run_into(entry, net, c, numbers.data()) << "\n";
            } catch (const std::bad_alloc&) {
                std::cout << entry.name << " lacks memory\n";
            }
        }
    } catch (const std::bad_alloc&) {
        std::cout << "no handle\n";
    }
    std::cout << std::flush;
    std::_Exit(0);
}

// AddressSanitizer itself takes more address space than that.
#if !defined(VEMKN_SANITIZED)
TEST(ScarceMemoryFault, LimitsAroundWhatANetworkTakes_RefusedOrThrownButNeverHalf)
{
    const int step = usual_or_full(60'000, 5'000);
    for (int kilobytes = 200'000; kilobytes <= 800'000; kilobytes += step) {
        const child::Outcome outcome =
            child::play("calls_with_little_memory",
                        {std::to_string(kilobytes)},
                        {.environment = {{"OPENBLAS_NUM_THREADS", "1"}}});
        EXPECT_TRUE(outcome.exited_with(0)) << kilobytes << ": " << outcome.description();
        // Both models, or neither: each says that it is not built.
        const std::string refused = "Error: invalid network data\n";
        const std::size_t first = outcome.err.find(refused);
        const bool none = outcome.out.find("no network\n") != std::string::npos;
        EXPECT_EQ(none, first != std::string::npos) << kilobytes;
        EXPECT_EQ(none, outcome.err.find(refused + refused) != std::string::npos) << kilobytes;
    }
}
#endif
