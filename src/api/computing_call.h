#pragma once

#include <algorithm>
#include <cmath>
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

    bool has_infinity() const
    {
        return data != nullptr && !kernels().all_finite(data, n) &&
               std::any_of(data, data + n, [](double a) { return std::isinf(a); });
    }
};

// The rows that enter a network. More columns than it takes end the process before a row is looked at.
inline InputArray input_rows(const VEMKNInfo& net, const double* x, std::uint64_t n, unsigned cols)
{
    return {x, cols > net.model.numin ? 0 : n * cols};
}

// Whether the weights of a call are infinite somewhere: the caller's, or the handle's own ones for a null w.
inline bool infinite_weights(const VEMKNInfo& net, const double* w)
{
    if (w != nullptr) return InputArray{w, numel(net.model)}.has_infinity();
    bool found = false;
    for_each_parameter(net.model, [&](const auto& part, std::size_t) {
        found = found || InputArray{elements(part), part.size()}.has_infinity();
    });
    return found;
}

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

// The same for a call that multiplies weights and factors.
template <class Work>
int computing_call(const VEMKNInfo& net,
                   const double* w,
                   std::initializer_list<InputArray> factors,
                   const Work& work)
{
    const auto infinite = [](const InputArray& array) { return array.has_infinity(); };
    const PlainProducts plain(
        !net.quiet &&
        (infinite_weights(net, w) || std::any_of(factors.begin(), factors.end(), infinite)));
    return computing_call(net, work);
}

}  // namespace VEMKN
