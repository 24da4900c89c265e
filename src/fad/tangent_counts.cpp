#include "fad/tangent_counts.h"

#include <condition_variable>
#include <mutex>
#include <new>

#include "runtime/fork_safe.h"

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

    // Nobody holds it or waits at it there.
    static void renew_in_child(Gate& gate) { new (&gate) Gate; }
};

const VEMKN::ForkSafe<Gate> gate;

// Waits until nobody holds the gate, or until may_join() says that it can be held together; `first` runs in the first
// case, while no carrier of any call exists.
template <class MayJoin, class First>
void acquire(bool shared, const MayJoin& may_join, const First& first)
{
    Gate& g = *gate;
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

TangentLock::TangentLock(std::uint64_t tangents)
{
    acquire(
        true,
        [&] { return g_ndd == tangents && FO::Dynamic::NDIR == tangents; },
        [&] { g_ndd = FO::Dynamic::NDIR = tangents; });
}

TangentLock::TangentLock(Creation)
{
    acquire(
        false, [] { return false; }, [] { g_ndd = 1; });
}

TangentLock::~TangentLock()
{
    Gate& g = *gate;
    const std::lock_guard lock(g.mutex);
    --g.holders;
    g.changed.notify_all();
}

}  // namespace yafad
