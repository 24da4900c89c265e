#include "runtime/calls.h"

#include <cblas.h>
#include <omp.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <new>

#include "runtime/fork_safe.h"

namespace VEMKN {

namespace {

// OpenBLAS as packaged has 128 buffers. Its own pool holds up to 63 of them (one for each worker of at most 64
// threads), every thread inside a product takes one more, and from the 129th on it ends the process sooner or later.
constexpr int MAX_THREADS_INSIDE = 64;

// More threads than processors only cost time: those that wait spin where others have work to do. The floor is for the
// machine with one, where a team is a team all the same.
constexpr int MIN_TEAM_LIMIT = 2;

struct Process {
    std::mutex mutex;
    std::condition_variable room;
    int calls = 0;           // in flight
    int threads_inside = 0;  // calls, and the workers of their teams
    int host_blas_threads = 0;
    bool forked = false;

    // The forking thread is in no call (an error handler must not fork). Calls that other threads had in flight are gone,
    // but they had set BLAS to one thread: the child's first call puts back the count that they would have put back.
    static void renew_in_child(Process& p)
    {
        const int host_blas_threads = p.calls > 0 ? p.host_blas_threads : 0;
        new (&p) Process;
        p.host_blas_threads = host_blas_threads;
        p.forked = true;
    }
};

const ForkSafe<Process> process;

}  // namespace

CallInFlight::CallInFlight()
{
    Process& p = *process;
    std::unique_lock lock(p.mutex);
    p.room.wait(lock, [&] { return p.threads_inside < MAX_THREADS_INSIDE; });
    if (p.calls == 0 && p.host_blas_threads == 0) p.host_blas_threads = openblas_get_num_threads();
    ++p.calls;
    ++p.threads_inside;
    openblas_set_num_threads(1);
}

CallInFlight::~CallInFlight()
{
    if (!counted_) return;
    Process& p = *process;
    const std::lock_guard lock(p.mutex);
    --p.threads_inside;
    if (--p.calls == 0) p.host_blas_threads = 0;
    p.room.notify_one();
}

void CallInFlight::finish()
{
    Process& p = *process;
    const std::lock_guard lock(p.mutex);
    counted_ = false;
    --p.threads_inside;
    if (--p.calls == 0) {
        openblas_set_num_threads(p.host_blas_threads);
        p.host_blas_threads = 0;
    }
    p.room.notify_one();
}

TeamPermit::TeamPermit(unsigned shares, unsigned threads) : workers_(0)
{
    const unsigned wanted = std::min(shares, threads);
    if (wanted <= 1 || openblas_get_parallel() == OPENBLAS_SEQUENTIAL) return;

    const int limit = std::max(omp_get_num_procs(), MIN_TEAM_LIMIT);
    const int team = static_cast<int>(std::min(wanted, static_cast<unsigned>(limit)));
    Process& p = *process;
    const std::lock_guard lock(p.mutex);
    if (p.forked) return;
    workers_ = std::min(team - 1, MAX_THREADS_INSIDE - p.threads_inside);
    p.threads_inside += workers_;
}

TeamPermit::~TeamPermit()
{
    if (workers_ == 0) return;
    Process& p = *process;
    const std::lock_guard lock(p.mutex);
    p.threads_inside -= workers_;
    p.room.notify_all();
}

}  // namespace VEMKN
