#include "runtime/thread_record.h"

#include "runtime/calls.h"
#include "runtime/gate.h"

namespace VEMKN {

ThreadRecord& this_thread()
{
    // Without a destructor: exit handlers may call when those of the thread have run.
    [[gnu::tls_model("initial-exec")]] static thread_local ThreadRecord record;
    return record;
}

void give_back_abandoned()
{
    if (this_thread().threads_inside > 0) count_out_abandoned_call();
    if (this_thread().at_the_gate) leave_gate();
}

void watch_end_of_thread()
{
    struct AtEnd {
        ~AtEnd() { give_back_abandoned(); }
    };

    [[gnu::tls_model("initial-exec")]] static thread_local AtEnd at_end;
    static_cast<void>(at_end);
}

}  // namespace VEMKN
