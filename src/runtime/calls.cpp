#include "runtime/calls.h"

#include <cblas.h>
#include <omp.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <new>
#include <thread>

#include "runtime/fork_safe.h"
#include "runtime/no_cancellation.h"
#include "runtime/plain_thread.h"
#include "runtime/thread_record.h"

namespace VEMKN {

namespace {

// More threads than processors only cost time: those that wait spin where others have work to do. The floor is for the
// machine with one, where a team is a team all the same.
constexpr int MIN_TEAM_LIMIT = 2;

// How long an ending process waits for calls, and they for it.
constexpr std::chrono::seconds LONGEST_WAIT_AT_THE_END(1);

using Clock = std::chrono::steady_clock;

struct Process {
    std::mutex mutex;
    std::condition_variable room;
    int calls = 0;           // in flight
    int threads_inside = 0;  // OpenBLAS
    int host_blas_threads = 0;
    bool forked = false;
    std::thread::id ending;  // the thread that ends the process, if any
    Clock::time_point held_until;

    // What is behind the gate is not: others would wait for it there.
    bool is_held_back() const
    {
        return !this_thread().at_the_gate && ending != std::thread::id() &&
               ending != std::this_thread::get_id() && Clock::now() < held_until;
    }

    // The forking thread is in no call (an error handler must not fork), but it may have left one by a jump. Calls that other
    // threads had in flight are gone, but they had set BLAS to one thread: the child's first call puts back the count that
    // they would have put back.
    static void renew_in_child(Process& p)
    {
        const int host_blas_threads = p.calls > 0 ? p.host_blas_threads : 0;
        new (&p) Process;
        p.host_blas_threads = host_blas_threads;
        p.forked = true;
        this_thread().threads_inside = 0;
        this_thread().is_in_call = false;
    }
};

const ForkSafe<Process> process;

// Counts the call of this thread out, if it is in one, with all its workers; the last one out puts the BLAS thread count
// back, or leaves it.
void count_out(bool restore_blas)
{
    if (!this_thread().is_in_call) return;
    Process& p = *process;
    const std::lock_guard lock(p.mutex);
    p.threads_inside -= this_thread().threads_inside;
    this_thread().threads_inside = 0;
    this_thread().is_in_call = false;
    if (--p.calls == 0) {
        if (restore_blas) openblas_set_num_threads(p.host_blas_threads);
        p.host_blas_threads = 0;
    }
    p.room.notify_all();
}

void wait_while_held_back(Process& p, std::unique_lock<std::mutex>& lock)
{
    const NoCancellation whole;
    while (p.is_held_back()) p.room.wait_until(lock, p.held_until);
}

// Runs before OpenBLAS, which this library needs, takes itself down.
[[gnu::destructor]] void end_of_library()
{
    hold_other_threads_back();
}

}  // namespace

CallInFlight::CallInFlight(Enters enters)
{
    watch_end_of_thread();
    // Without one there is nothing to give back: at the gate the thread may be for this very call.
    if (this_thread().is_in_call) give_back_abandoned();
    const int inside = enters == Enters::blas ? 1 : 0;
    Process& p = *process;
    std::unique_lock lock(p.mutex);
    const auto may_enter = [&] { return p.threads_inside + inside <= MAX_THREADS_INSIDE; };
    if (p.is_held_back()) wait_while_held_back(p, lock);
    if (!may_enter()) {
        const NoCancellation whole;
        p.room.wait(lock, may_enter);
    }
    if (p.calls == 0 && p.host_blas_threads == 0) p.host_blas_threads = openblas_get_num_threads();
    ++p.calls;
    p.threads_inside += inside;
    this_thread().threads_inside = inside;
    this_thread().is_in_call = true;
    openblas_set_num_threads(1);
}

CallInFlight::~CallInFlight()
{
    count_out(false);
}

void CallInFlight::finish()
{
    count_out(true);
}

void count_out_abandoned_call()
{
    count_out(true);
}

void wait_while_held_back()
{
    Process& p = *process;
    std::unique_lock lock(p.mutex);
    if (p.is_held_back()) wait_while_held_back(p, lock);
}

void hold_other_threads_back()
{
    const NoCancellation whole;
    Process& p = *process;
    std::unique_lock lock(p.mutex);
    p.ending = std::this_thread::get_id();
    p.held_until = Clock::now() + LONGEST_WAIT_AT_THE_END;
    const int own = this_thread().is_in_call ? 1 : 0;
    p.room.wait_until(lock, p.held_until, [&] { return p.calls <= own; });
}

TeamPermit::TeamPermit(std::size_t items, unsigned threads) : workers_(0)
{
    const auto wanted = static_cast<unsigned>(std::min<std::size_t>(items, threads));
    const bool enters_blas = this_thread().threads_inside > 0;
    if (wanted <= 1 || (enters_blas && openblas_get_parallel() == OPENBLAS_SEQUENTIAL)) return;

    const int limit = std::max(omp_get_num_procs(), MIN_TEAM_LIMIT);
    const int team = static_cast<int>(std::min(wanted, static_cast<unsigned>(limit)));
    {
        Process& p = *process;
        const std::lock_guard lock(p.mutex);
        if (p.forked) return;
        workers_ = team - 1;
        if (enters_blas) {
            workers_ = std::min(workers_, MAX_THREADS_INSIDE - p.threads_inside);
            p.threads_inside += workers_;
            this_thread().threads_inside += workers_;
        }
    }
    const int more = workers_ - this_thread().workers;
    if (more > 0) give_back(more - threads_to_be_had(more));
    this_thread().workers = workers_;
}

void TeamPermit::give_back(int workers)
{
    workers_ -= workers;
    if (workers == 0 || this_thread().threads_inside == 0) return;
    Process& p = *process;
    const std::lock_guard lock(p.mutex);
    p.threads_inside -= workers;
    this_thread().threads_inside -= workers;
    p.room.notify_all();
}

}  // namespace VEMKN
