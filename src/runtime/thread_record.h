#pragma once

#include <atomic>

namespace VEMKN {

struct MemoryBlock;

// What the calling thread holds for the call that it is in. A host may leave a call by a jump out of its signal handler, and
// then no destructor runs: the next call on the thread finds here what has to be given back first.
struct ThreadRecord {
    bool is_in_call = false;
    // OpenBLAS, in a call that enters it: itself and the workers of its team.
    int threads_inside = 0;
    bool at_the_gate = false;
    std::atomic<MemoryBlock*> blocks{nullptr};  // of memory, those of its workers too
    int workers = 0;                            // in its last team: OpenMP keeps them for the next
    bool is_watched = false;
};

ThreadRecord& this_thread();

// Gives back what a call that was left by a jump still holds.
void give_back_abandoned();

// Has a thread that ends do so.
void watch_end_of_thread();

}  // namespace VEMKN
