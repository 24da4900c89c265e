#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>
#include <iostream>
#include <string>

#include "support/all_entries.h"
#include "support/child.h"
#include "support/process_status.h"

// When calls start threads of their own, and how many.

namespace {

// Threads that the process has more after the entry points that run slices, with four threads asked for and slices of `batch` rows.
long threads_started(const Network& net, int batch)
{
    vemk_setpar(net, 4, batch);
    const long before = status_number("Threads:");
    for (const char* const name : {"vemk_obj", "vemk_g", "vemk_Hv", "vemk_Jv", "vemk_vJ"}) {
        any_entry_named(name).run(net, random_request(usual_network(), 500, 5, 8, 1));
    }
    return status_number("Threads:") - before;
}

}  // namespace

SCENE(calls_with_one_slice_and_with_several)
{
    const Network net(usual_network().text());
    std::cout << "\none slice: " << threads_started(net, 500);
    std::cout << "\nfive slices: " << threads_started(net, 100) << std::endl;
}

TEST(Team, ABatchOfOneSliceStartsNoneAndOneOfManyNoMoreThanProcessors)
{
    const child::Outcome outcome = child::play("calls_with_one_slice_and_with_several");
    EXPECT_TRUE(outcome.exited_with(0)) << outcome.description();
    // No more threads than processors, but two on a machine with one.
    const int team = std::clamp(omp_get_num_procs(), 2, 4);
    const std::string started = "\none slice: 0\nfive slices: " + std::to_string(team - 1) + "\n";
    EXPECT_NE(std::string::npos, outcome.out.find(started)) << outcome.out;
}

// Cotangents are shared out whatever the batch, where there is work enough; of little work nothing is.
SCENE(sweeps_many_cotangents_of_one_slice)
{
    const Network net(usual_network().text());
    const auto& sweep = any_entry_named("vemk_vJ_vec");
    const long before = status_number("Threads:");
    vemk_setpar(net, 4, 5);
    any_entry_named("vemk_g").run(net, random_request(usual_network(), 20, 5, 8, 1));
    vemk_setpar(net, 4, 100);
    sweep.run(net, random_request(usual_network(), 10, 5, 20, 1));
    std::cout << "\nlittle: " << status_number("Threads:") - before;
    sweep.run(net, random_request(usual_network(), 100, 5, 40, 1));
    std::cout << "\nmuch: " << status_number("Threads:") - before << std::endl;
}

TEST(Team, SweepsManyCotangentsOfOneSliceTogether)
{
    const child::Outcome outcome = child::play("sweeps_many_cotangents_of_one_slice");
    EXPECT_TRUE(outcome.exited_with(0)) << outcome.description();
    const int team = std::clamp(omp_get_num_procs(), 2, 4);
#if defined(VEMKN_SANITIZED)  // teams whatever the work
    const int little = team - 1;
#else
    const int little = 0;
#endif
    const std::string started =
        "\nlittle: " + std::to_string(little) + "\nmuch: " + std::to_string(team - 1) + "\n";
    EXPECT_NE(std::string::npos, outcome.out.find(started)) << outcome.out;
}
