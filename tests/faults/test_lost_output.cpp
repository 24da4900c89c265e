#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <iostream>

#include "support/all_entries.h"
#include "support/child.h"

// A host may have closed its standard streams, or send them to a full device. That is no reason not to compute.

// files to write to instead
SCENE(writes_nowhere)
{
    for (const std::string& file : arguments) {
        const int nowhere = open(file.c_str(), O_WRONLY);
        dup2(nowhere, STDOUT_FILENO);
        dup2(nowhere, STDERR_FILENO);
        close(nowhere);
    }
    std::cout.exceptions(std::ios::badbit | std::ios::failbit);
    std::cerr.exceptions(std::ios::badbit | std::ios::failbit);
    // No buffer hides that a write fails.
    std::setvbuf(stdout, nullptr, _IONBF, 0);
    const Network unknown_norm("3 2 2 1 8 3 4 relu l2");
    const Network invalid("0 2 2 1 8 3 4 relu sum");
    vemk_g(nullptr, nullptr, 0, nullptr, nullptr, 0, 0, 0, nullptr, nullptr);
    const Network net(usual_network().text());
    const Request q = random_request(usual_network(), 40, 5, 2, 1);
    const Numbers computed = results_of(entry_named("vemk_g"), net, q.batch);
    const plain::Reals truth = truth_of(entry_named("vemk_g"), usual_network(), q.batch);
    int wrong = 0;
    for (std::size_t i = 0; i < truth.size(); ++i)
        wrong += std::fabs(computed[i] - truth[i]) > 1e-12L;
    for (const auto& bits : all_bits(net, q)) wrong += bits.empty();
    _exit(wrong == 0 ? 7 : 8);  // flushing the host's own streams may fail now
}

TEST(LostOutputFault, StandardStreamsClosed_TheCallsWork)
{
    const child::Outcome outcome = child::play("writes_nowhere", {}, {.closed_streams = true});
    EXPECT_TRUE(outcome.exited_with(7)) << outcome.description();
}

TEST(LostOutputFault, StandardStreamsOnAFullDevice_TheCallsWork)
{
    const child::Outcome outcome = child::play("writes_nowhere", {"/dev/full"});
    EXPECT_TRUE(outcome.exited_with(7)) << outcome.description();
}
