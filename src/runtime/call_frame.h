#pragma once

#include "runtime/calls.h"
#include "runtime/traps.h"

namespace VEMKN {

// The banner, one line on standard output, once a process.
void print_banner_once();

// From then on it is not printed.
void count_banner_as_printed();

// What every computing entry point and the parser run their work in: banner, BLAS to one thread, traps on, the work,
// traps off, BLAS threads back. Where there are no traps, flags take their place. Deliberate: an exception out of the work
// leaves traps armed and BLAS at one thread, so this is no destructor's job.
template <class Work>
void call_frame(Enters enters, const Work& work)
{
    print_banner_once();
    CallInFlight call(enters);
    const bool are_armed = arm_traps();
    {
        const FlagWatch watch(!are_armed);
        work();
    }
    fedisableexcept(TRAPS);
    call.finish();
}

// The same for a quiet handle: no traps, and the host's floating-point environment as it was found.
template <class Work>
void quiet_frame(Enters enters, const Work& work)
{
    print_banner_once();
    CallInFlight call(enters);
    const ScopedEnvironment host;
    ScopedEnvironment::mask_all();
    const FlagWatch nothing(false);
    work();
    call.finish();
}

}  // namespace VEMKN
