#include "fad/directions.h"

#include <pthread.h>

#include <condition_variable>
#include <mutex>
#include <new>

std::uint64_t g_ndd = 1;

namespace yafad {

std::uint64_t FO::Dynamic::NDIR = 1;

namespace {

struct Gate {
    std::mutex mutex;
    std::condition_variable changed;
    std::uint64_t holders = 0;
    bool shared = false;  // whether what is held may be held together
    std::uint64_t next_ticket = 0;
    std::uint64_t now_served = 0;
};

// Never destroyed: a host thread may still be in a call while the process ends.
Gate& gate()
{
    alignas(Gate) static unsigned char storage[sizeof(Gate)];
    static Gate* const instance = new (storage) Gate;
    return *instance;
}

void before_fork()
{
    gate().mutex.lock();
}

void after_fork_in_parent()
{
    gate().mutex.unlock();
}

void after_fork_in_child()
{
    new (&gate()) Gate;
}

[[maybe_unused]] const int registered =
    pthread_atfork(before_fork, after_fork_in_parent, after_fork_in_child);

// Waits until nobody holds the gate, or until may_join() says that it can be held together; `first` runs in the first
// case, while no carrier of any call exists.
template <class MayJoin, class First>
void acquire(bool shared, const MayJoin& may_join, const First& first)
{
    Gate& g = gate();
    std::unique_lock lock(g.mutex);
    const std::uint64_t ticket = g.next_ticket++;
    g.changed.wait(lock, [&] {
        return ticket == g.now_served && (g.holders == 0 || (g.shared && may_join()));
    });
    ++g.now_served;
    if (g.holders++ == 0) {
        g.shared = shared;
        first();
    }
    g.changed.notify_all();
}

}  // namespace

DirectionLock::DirectionLock(std::uint64_t directions)
{
    acquire(
        true,
        [&] { return g_ndd == directions && FO::Dynamic::NDIR == directions; },
        [&] { g_ndd = FO::Dynamic::NDIR = directions; });
}

DirectionLock::DirectionLock(Creation)
{
    acquire(
        false, [] { return false; }, [] { g_ndd = 1; });
}

DirectionLock::~DirectionLock()
{
    Gate& g = gate();
    const std::lock_guard lock(g.mutex);
    --g.holders;
    g.changed.notify_all();
}

}  // namespace yafad
