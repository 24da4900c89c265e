#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <mutex>
#include <optional>

#include "model/blas.h"
#include "runtime/calls.h"
#include "runtime/traps.h"

namespace VEMKN {

// How items (slices or chunks of rows, or backward sweeps) are dealt to `threads` threads: ceil(items/threads) neighbours to
// a share. Shares depend on these two numbers only, never on how many threads really work, and each has sums of its own that
// are merged in share order: so the bits of a result do not depend on the team either.
//
// As many shares as threads may work inside the library keep any team busy; of more, nearly all the time would go into
// handing the merge from one thread to the next.
class Shares {
public:
    static constexpr unsigned MOST = 64;

    Shares(std::size_t items, unsigned threads)
        : items_(items),
          of_share_(static_cast<std::size_t>(std::ceil(
              static_cast<double>(items) / static_cast<double>(std::min(threads, MOST))))),
          count_(items == 0 ? 0 : static_cast<unsigned>((items + of_share_ - 1) / of_share_))
    {
    }

    unsigned count() const { return count_; }

    std::size_t begin(unsigned share) const { return share * of_share_; }

    std::size_t end(unsigned share) const { return std::min(begin(share) + of_share_, items_); }

private:
    std::size_t items_;
    std::size_t of_share_;
    unsigned count_;
};

// The first exception that leaves a piece of work in a team, handed to the calling thread after the region: an
// exception must not cross the end of a parallel region, and the host gets it as from a call with one thread.
class TeamException {
public:
    template <class Work>
    void guard(const Work& work)
    {
        try {
            work();
        } catch (...) {
            const std::lock_guard lock(mutex_);
            if (!first_) first_ = std::current_exception();
        }
    }

    void rethrow() const
    {
        if (first_) std::rethrow_exception(first_);
    }

private:
    std::mutex mutex_;
    std::exception_ptr first_;
};

// The one distributor of work. Runs work(local, item) for every item, and merge(local) once at the end of every share, in
// share order and never two at a time. make_local() makes what a thread needs for its shares; begin(local) resets it at the
// start of each.
template <class MakeLocal, class Begin, class Work, class Merge>
void for_each_share(const Shares& shares,
                    const TeamPermit& team,
                    const MakeLocal& make_local,
                    const Begin& begin,
                    const Work& work,
                    const Merge& merge)
{
    const auto run = [&](auto& local, unsigned share) {
        begin(local);
        for (std::size_t i = shares.begin(share); i < shares.end(share); ++i) work(local, i);
    };
    if (team.size() == 1 || shares.count() <= 1) {
        auto local = make_local();
        for (unsigned share = 0; share < shares.count(); ++share) {
            run(local, share);
            merge(local);
        }
        return;
    }

    TeamException failure;
    const bool plain = WithoutBlas::here();
    const ScopedEnvironment of_caller;
    // A thread that the region starts inherits the traps of this one, and would keep them when it leaves the team.
    fedisableexcept(TRAPS);
#pragma omp parallel num_threads(team.size())
    {
        const ScopedEnvironment taken_over(of_caller.before());
        const WithoutBlas products(plain);
        std::optional<decltype(make_local())> local;
        failure.guard([&] { local.emplace(make_local()); });
#pragma omp for ordered schedule(static, 1)
        for (unsigned share = 0; share < shares.count(); ++share) {
            bool done = false;
            if (local) failure.guard([&] { run(*local, share), done = true; });
#pragma omp ordered
            if (done) failure.guard([&] { merge(*local); });
        }
    }
    failure.rethrow();
}

// The same with a team of at most `threads`.
template <class MakeLocal, class Begin, class Work, class Merge>
void for_each_share(const Shares& shares,
                    unsigned threads,
                    const MakeLocal& make_local,
                    const Begin& begin,
                    const Work& work,
                    const Merge& merge)
{
    for_each_share(shares, TeamPermit(shares.count(), threads), make_local, begin, work, merge);
}

}  // namespace VEMKN
