#include <gtest/gtest.h>

#include <iostream>

#include "support/all_entries.h"
#include "support/child.h"
#include "support/process_status.h"

// When calls start threads of their own.

namespace {

// Threads that the process has more after every entry point with four threads asked for, slices of `batch` rows.
long threads_started(const Network& net, int batch)
{
    vemk_setpar(net, 4, batch);
    const long before = status_number("Threads:");
    all_bits(net, random_request(usual_network(), 20, 8, 8, 1));
    return status_number("Threads:") - before;
}

}  // namespace

SCENE(calls_with_one_slice_and_with_several)
{
    const Network net(usual_network().text());
    std::cout << "\none slice: " << threads_started(net, 20);
    std::cout << "\nfive slices: " << threads_started(net, 4) << std::endl;
}

TEST(Team, ABatchOfOneSliceStartsNone)
{
    const child::Outcome outcome = child::play("calls_with_one_slice_and_with_several");
    EXPECT_TRUE(outcome.exited_with(0)) << outcome.description();
    EXPECT_NE(std::string::npos, outcome.out.find("\none slice: 0\nfive slices: 3\n")) << outcome.out;
}
