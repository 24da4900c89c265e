#pragma once

#include <cstddef>

namespace VEMKN {

// What the calls that run at this moment, in whatever host threads, share: the BLAS thread count that the host had,
// and how many threads stand inside OpenBLAS. All of it survives an exception, and starts afresh in a fork's child.

// OpenBLAS as packaged has 128 buffers. Its own pool holds up to 63 of them (one for each worker of at most 64
// threads), every thread inside a product takes one more, and from the 129th on it ends the process sooner or later.
inline constexpr int MAX_THREADS_INSIDE = 64;

// Whether a call forms products by OpenBLAS, or none.
enum class Enters { blas, nothing };

// One call in flight. The first call in saves the BLAS thread count; every call sets it to one. One that enters OpenBLAS
// waits while there is no buffer left for it.
class CallInFlight {
public:
    explicit CallInFlight(Enters enters);
    // Counts the call out. Does not touch the BLAS thread count: see finish().
    ~CallInFlight();
    CallInFlight(const CallInFlight&) = delete;
    CallInFlight& operator=(const CallInFlight&) = delete;

    // The regular end of a call: counts it out, and the last one out puts the BLAS thread count back. A call that an
    // exception leaves does not come here, so that BLAS then stays at one thread.
    void finish();
};

// The end of the call that the thread has left by a jump, and whose destructors did not run.
void count_out_abandoned_call();

// The process ends on the calling thread: holds new calls of other threads back for a second, and waits as long for those in
// flight. OpenBLAS takes itself down while the process ends, and whoever computes then crashes. The calling thread itself
// may go on calling, and a call that it is in does not count.
void hold_other_threads_back();

// Waits while the calling thread is held back. Whoever is to wait for others' calls does so before.
void wait_while_held_back();

// Leave for a team of threads to work on that many items: at most `threads`, never more than there are items,
// and one in a fork's child (where libgomp cannot start a team). No more, too, than the system has threads to give: libgomp
// would end the process. For a call that enters OpenBLAS never so many that it would run out of buffers, and one with its
// serial variant, which is not fit for several threads.
class TeamPermit {
public:
    TeamPermit(std::size_t items, unsigned threads);

    ~TeamPermit() { give_back(workers_); }

    TeamPermit(const TeamPermit&) = delete;
    TeamPermit& operator=(const TeamPermit&) = delete;

    int size() const { return 1 + workers_; }

private:
    void give_back(int workers);

    int workers_;  // besides the calling thread
};

}  // namespace VEMKN
