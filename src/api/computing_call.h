#pragma once

#include "api/buffers.h"
#include "api/call_frame.h"
#include "api/handle.h"

namespace VEMKN {

// The body of every computing entry point: runs work(results) in the frame that the handle asks for and gives the return
// value of the call. 1 says that a quiet handle gave results that are not all finite.
template <class Work>
int computing_call(const VEMKNInfo& net, const Work& work)
{
    Results results(net.quiet);
    const auto run = [&] { work(results); };
    if (!net.quiet) {
        call_frame(run);
        return 0;
    }
    quiet_frame(run);
    return results.all_finite() ? 0 : 1;
}

}  // namespace VEMKN
