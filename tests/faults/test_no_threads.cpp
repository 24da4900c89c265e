#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>

#include "support/all_entries.h"

// A system that has no thread to give: a limit of processes or of memory is reached. This program's pthread_create stands
// before the system's.

namespace {

std::atomic<int> left{1000};

}  // namespace

// As many processors as a team can use, on any machine.
extern "C" int omp_get_num_procs()
{
    return 8;
}

extern "C" int pthread_create(pthread_t* thread,
                              const pthread_attr_t* attributes,
                              void* (*run)(void*),
                              void* argument)
{
    if (left <= 0) return EAGAIN;
    --left;
    static auto* const next =
        reinterpret_cast<decltype(&pthread_create)>(dlsym(RTLD_NEXT, "pthread_create"));
    return next(thread, attributes, run, argument);
}

// A call starts as many threads as its team has besides itself, to see whether they are to be had, and then the team.
TEST(NoThreadFault, SystemWithFewThreadsToGive_SmallerTeamsWithTheSameBits)
{
    const plain::Network network = usual_network();
    const Network net(network.text());
    const Request q = random_request(network, 200, 5, 3, 1);
    vemk_setpar(net, 5, 8);
    left = 0;
    const auto alone = all_bits(net, q);
    left = 1000;
    EXPECT_EQ(all_bits(net, q), alone);
    // A team that stands is not asked for anew.
    left = 0;
    EXPECT_EQ(all_bits(net, q), alone);
    left = 1000;
}
