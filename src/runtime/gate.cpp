#include "runtime/gate.h"

#include <condition_variable>
#include <mutex>
#include <new>

#include "runtime/calls.h"
#include "runtime/fork_safe.h"
#include "runtime/no_cancellation.h"
#include "runtime/thread_record.h"

namespace VEMKN {

namespace {

struct Gate {
    std::mutex mutex;
    std::condition_variable changed;
    std::uint64_t passed = 0;  // threads behind it
    std::uint64_t state = EXCLUSIVE;
    std::uint64_t next_ticket = 0;
    std::uint64_t now_served = 0;

    static void renew_in_child(Gate& gate)
    {
        new (&gate) Gate;
        this_thread().at_the_gate = false;
    }
};

const ForkSafe<Gate> gate;

}  // namespace

void pass_gate(std::uint64_t state, void (*set_state)(std::uint64_t))
{
    watch_end_of_thread();
    give_back_abandoned();
    wait_while_held_back();
    Gate& g = *gate;
    const NoCancellation whole;
    std::unique_lock lock(g.mutex);
    const std::uint64_t ticket = g.next_ticket++;
    g.changed.wait(lock, [&] {
        const bool may_join = state == g.state && state != EXCLUSIVE;
        return ticket == g.now_served && (g.passed == 0 || may_join);
    });
    ++g.now_served;
    if (g.passed++ == 0) {
        g.state = state;
        set_state(state);
    }
    this_thread().at_the_gate = true;
    g.changed.notify_all();
}

void leave_gate()
{
    if (!this_thread().at_the_gate) return;
    Gate& g = *gate;
    const std::lock_guard lock(g.mutex);
    this_thread().at_the_gate = false;
    --g.passed;
    g.changed.notify_all();
}

}  // namespace VEMKN
