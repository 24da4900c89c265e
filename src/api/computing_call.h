#pragma once

#include <algorithm>
#include <cstdint>
#include <initializer_list>

#include "api/buffers.h"
#include "api/call_frame.h"
#include "api/handle.h"
#include "model/blas.h"

namespace VEMKN {

// A caller's array that enters products, or null.
struct InputArray {
    const double* data;
    std::uint64_t n;

    bool all_finite() const { return data == nullptr || kernels().all_finite(data, n); }
};

// The body of every computing entry point: runs work(results) in the frame that the handle asks for and gives the return
// value of the call. 1 says that a quiet handle gave results that are not all finite.
template <class Work>
int computing_call(const VEMKNInfo& net,
                   std::initializer_list<InputArray> factors,
                   const Work& work)
{
    Results results(net.quiet);
    const auto run = [&] { work(results); };
    if (!net.quiet) {
        const auto finite = [](const InputArray& array) { return array.all_finite(); };
        const PlainProducts plain(!std::all_of(factors.begin(), factors.end(), finite));
        call_frame(run);
        return 0;
    }
    quiet_frame(run);
    return results.all_finite() ? 0 : 1;
}

}  // namespace VEMKN
