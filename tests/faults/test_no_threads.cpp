#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>

#include "support/all_entries.h"

// A system that has no thread to give: a limit of processes or of memory is reached. This program's pthread_create stands
// before the system's.

namespace {

std::atomic<bool> exhausted{false};

}  // namespace

extern "C" int pthread_create(pthread_t* thread,
                              const pthread_attr_t* attributes,
                              void* (*run)(void*),
                              void* argument)
{
    if (exhausted) return EAGAIN;
    using Create = int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
    static Create* const next = reinterpret_cast<Create*>(dlsym(RTLD_NEXT, "pthread_create"));
    return next(thread, attributes, run, argument);
}

TEST(NoThreadFault, SystemWithoutAThreadToGive_OneThreadWithTheSameBits)
{
    const plain::Network network = usual_network();
    const Network net(network.text());
    const Request q = random_request(network, 200, 5, 3, 1);
    vemk_setpar(net, 4, 8);
    exhausted = true;
    const auto alone = all_bits(net, q);
    exhausted = false;
    EXPECT_EQ(all_bits(net, q), alone);
    // A team that stands is not asked for anew.
    exhausted = true;
    EXPECT_EQ(all_bits(net, q), alone);
    exhausted = false;
}
