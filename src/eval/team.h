#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <exception>
#include <mutex>
#include <optional>

#include "eval/slices.h"
#include "eval/turns.h"
#include "model/blas.h"
#include "runtime/calls.h"
#include "runtime/traps.h"

// How a call's work is dealt out to a team of threads. No bit of a result depends on it: items write to places of their own, or
// add to sums in their turn.

namespace VEMKN {

// The first exception that leaves a piece of work in a team, handed to the calling thread after the region: an
// exception must not cross the end of a parallel region, and the host gets it as from a call with one thread.
class TeamException {
public:
    // Nothing where something has failed already: nobody will look at it. Returns whether nothing has.
    template <class Work>
    bool guard(const Work& work)
    {
        if (failed_) return false;
        try {
            work();
            look_at_flags();
            return true;
        } catch (...) {
            const std::lock_guard lock(mutex_);
            if (!first_) first_ = std::current_exception();
            failed_ = true;
            return false;
        }
    }

    void rethrow() const
    {
        if (first_) std::rethrow_exception(first_);
    }

private:
    std::atomic<bool> failed_{false};
    std::mutex mutex_;
    std::exception_ptr first_;
};

// Runs body(failure) on every thread of a team, which takes over the caller's floating-point environment and way of
// multiplying. The body deals out the work; whatever may throw goes through failure.guard().
template <class Body>
void in_team([[maybe_unused]] const TeamPermit& team, const Body& body)
{
    TeamException failure;
    const bool plain = WithoutBlas::here();
    const bool looks = looks_at_flags;
    look_at_flags();  // else the others would take over what this thread has found
    const ScopedEnvironment of_caller;
    const Arena arena_of_caller = arena;
    // A thread that the region starts inherits the traps of this one, and would keep them when it leaves the team.
    fedisableexcept(TRAPS);
#pragma omp parallel num_threads(team.size())
    {
        const ScopedEnvironment taken_over(of_caller.before());
        const FlagWatch watch(looks);
        const WithoutBlas products(plain);
        const MemoryOfTeam memory(arena_of_caller);
        body(failure);
    }
    failure.rethrow();
}

// How many threads a call asks for that runs rows through a network so many times, forward or back: those of the handle, or one
// where it has so little to do that a team would not be faster. In multiplications, of which an element function is worth some;
// measured on networks of 21 to 5,764 weights (docs/performance.md).
template <class Model>
unsigned worthwhile_threads(const Model& net, std::size_t rows, std::size_t runs)
{
#ifdef VEMKN_SANITIZED
    constexpr double LEAST_WORK = 0.0;  // every team that may be watched
#else
    constexpr double LEAST_WORK = 250'000;
#endif
    constexpr double OF_A_FUNCTION = 32;
    double of_a_row = 0.0;
    for (const auto& W : net.weights) {
        of_a_row += static_cast<double>(W.size()) + OF_A_FUNCTION * static_cast<double>(W.cols());
    }
    double work = of_a_row;
    for (const std::size_t times :
         {rows, runs, std::size_t{net.nmult}, numbers_of_an_entry(net.weights[0])}) {
        work *= static_cast<double>(times);
    }
    return work < LEAST_WORK ? 1 : net.threads;
}

// Runs work(local, item) for every item, each thread's in ascending order: `neighbours` of them on a thread, the next ones on the
// next. Each thread makes the Local that it works in, from its own memory: threads are to share no cache lines.
//   at_failure() : runs after work has thrown
template <class Local, class Work, class AtFailure>
void deal_out(std::size_t items,
              std::size_t neighbours,
              const TeamPermit& team,
              const Work& work,
              const AtFailure& at_failure)
{
    if (team.size() == 1 || items <= 1) {
        Local local;
        for (std::size_t i = 0; i < items; ++i) {
            work(local, i);
            look_at_flags();
        }
        return;
    }
    in_team(team, [&](TeamException& failure) {
        std::optional<Local> local;
        [[maybe_unused]] const std::size_t chunk =
            neighbours;  // Clang 14 cannot take a captured one
#pragma omp for schedule(static, chunk)
        for (std::size_t i = 0; i < items; ++i) {
            if (!failure.guard([&] {
                    if (!local) local.emplace();
                    work(*local, i);
                })) {
                at_failure();
            }
        }
    });
}

// Items that write to places of their own.
template <class Local, class Work>
void for_each_item(std::size_t items, const TeamPermit& team, const Work& work)
{
    const auto threads = static_cast<std::size_t>(team.size());
    const std::size_t of_a_thread = std::max<std::size_t>((items + threads - 1) / threads, 1);
    deal_out<Local>(items, of_a_thread, team, work, []() noexcept {});
}

// Runs of neighbouring slices, cut as slices are cut of rows, which a thread works on one after the other: for one thread those
// that go together, for a team at most so many a run, and not so many that threads are idle at the end.
inline Slices runs_of(std::size_t slices,
                      std::size_t together,
                      std::size_t most,
                      const TeamPermit& team)
{
    constexpr std::size_t TURNS_OF_A_THREAD = 4;
    const auto threads = static_cast<std::size_t>(team.size());
    if (threads == 1) most = together;
    const std::size_t fair = threads == 1 ? most : slices / (TURNS_OF_A_THREAD * threads);
    return {slices, static_cast<std::int32_t>(std::max<std::size_t>(std::min(fair, most), 1))};
}

// Items that add to sums in their turn.
template <class Local, class Work>
void for_each_in_turn(std::size_t items, const TeamPermit& team, Turns& turns, const Work& work)
{
    deal_out<Local>(items, 1, team, work, [&]() noexcept { turns.abandon(); });
}

}  // namespace VEMKN
