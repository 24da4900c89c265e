#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <thread>

#include "runtime/call_memory.h"
#include "runtime/calls.h"

namespace VEMKN {

// The order in which the threads of a team add to shared sums: items 0, 1, 2, ..., at each place by itself. So a sum has the bits
// that one thread gives it. Items are taken up in ascending order, so that the first that is not done never waits.
class Turns {
public:
    // A team of one adds in its order anyway.
    Turns(std::size_t places, const TeamPermit& team) : places_(team.size() == 1 ? 0 : places) {}

    // Waits until the item before has passed the place on. Throws where it never will.
    void await(std::size_t place, std::size_t item)
    {
        if (!are_taken()) return;
        const std::atomic<std::uint32_t>& next = places_[place].next;
        const auto mine = static_cast<std::uint32_t>(item);
        // Mostly the others are a small piece of work away, or wait for this processor; to be woken takes longer than both.
        constexpr int LOOKS = 100, YIELDS = 1000;
        for (int look = 0;; ++look) {
            const std::uint32_t now = next.load(std::memory_order_acquire);
            if (now == mine) return;
            if (now == ABANDONED) throw Abandoned();
            if (look < LOOKS) {
                pause();
            } else if (look < YIELDS) {
                std::this_thread::yield();
            } else {
                next.wait(now, std::memory_order_acquire);
            }
        }
    }

    void pass_on(std::size_t place, std::size_t item)
    {
        if (!are_taken()) return;
        auto mine = static_cast<std::uint32_t>(item);
        std::atomic<std::uint32_t>& next = places_[place].next;
        next.compare_exchange_strong(mine, mine + 1, std::memory_order_release);
        next.notify_all();
    }

    // An item will not be done: nobody waits any more.
    void abandon() noexcept
    {
        if (abandoned_.exchange(true)) return;
        for (Place& place : places_) {
            place.next.store(ABANDONED);
            place.next.notify_all();
        }
    }

private:
    // Leaves the work of a thread whose result nobody will look at.
    struct Abandoned {};

    static constexpr std::uint32_t ABANDONED = UINT32_MAX;

    // Close together: a thread mostly goes on to the next one, in the line that it has fetched.
    struct Place {
        std::atomic<std::uint32_t> next{0};
    };

    // Whether anybody may have to wait.
    bool are_taken() const { return !places_.empty(); }

    static void pause()
    {
#ifdef __x86_64__
        __builtin_ia32_pause();
#endif
    }

    CallList<Place> places_;
    std::atomic<bool> abandoned_{false};
};

}  // namespace VEMKN
