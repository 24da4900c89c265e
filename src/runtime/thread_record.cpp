#include "runtime/thread_record.h"

#include <pthread.h>

#include "runtime/call_memory.h"
#include "runtime/calls.h"
#include "runtime/gate.h"

namespace VEMKN {

namespace {

// Runs a function at the end of a thread that was given any value. Unlike the destructor of a thread-local object it takes no
// memory, whose lack would end the process.
pthread_key_t made_key()
{
    pthread_key_t key = 0;
    pthread_key_create(&key, [](void*) { give_back_abandoned(); });
    return key;
}

const pthread_key_t end_of_thread = made_key();

}  // namespace

ThreadRecord& this_thread()
{
    [[gnu::tls_model("initial-exec")]] static thread_local ThreadRecord record;
    return record;
}

void give_back_abandoned()
{
    count_out_abandoned_call();
    leave_gate();
    give_back_call_memory();
}

void watch_end_of_thread()
{
    ThreadRecord& record = this_thread();
    if (record.is_watched) return;
    record.is_watched = pthread_setspecific(end_of_thread, &record) == 0;
}

}  // namespace VEMKN
