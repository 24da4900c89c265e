#include <gtest/gtest.h>

#include <iostream>

#include "support/all_entries.h"
#include "support/child.h"
#include "support/fp_state.h"

// A host that computed with infinities leaves exception flags pending; the first instruction after traps are armed would
// raise them. The R and Python lines that leave them are in stale_flags.R and stale_flags.py.

SCENE(leaves_flags_before_everything)
{
    leave_stale_flags();
    const Network net(usual_network().text());
    const Request q = random_request(usual_network(), 67, 5, 2, 1);
    std::feclearexcept(FE_ALL_EXCEPT);
    for (const unsigned threads : {1u, 3u}) {
        vemk_setpar(net, threads, 8);
        const auto expected = all_bits(net, q);
        for (std::size_t i = 0; i < ALL_ENTRIES.size(); ++i) {
#pragma omp parallel num_threads(3)
            leave_stale_flags();
            const Reply reply = ALL_ENTRIES[i].run(net, q);
            if (reply.status != 0 || bits_of(reply.numbers) != expected[i]) {
                std::cout << ALL_ENTRIES[i].name << " is wrong" << std::endl;
            }
        }
    }
    std::cout << "done" << std::endl;
}

TEST(StaleFlagsFault, StaleFlagsBeforeInitAndEveryCall_NormalResult)
{
    const child::Outcome outcome = child::play("leaves_flags_before_everything");
    EXPECT_TRUE(outcome.exited_with(0)) << outcome.description();
    EXPECT_EQ("VEMKN " VEMKN_VERSION " (C) 2026 the VEMKN developers\ndone\n", outcome.out);
}
