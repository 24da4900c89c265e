#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "api/batch.h"
#include "api/handle.h"
#include "api/needs.h"
#include "api/results.h"
#include "api/work_model.h"
#include "eval/input_width.h"
#include "model/blas.h"
#include "runtime/call_frame.h"
#include "runtime/call_memory.h"

namespace VEMKN {

// Runs work(results) in the frame that the handle asks for and gives the return value of the call. 1 says that a quiet
// handle gave results that are not all finite.
template <class Work>
int framed_call(const VEMKNInfo& net, Enters enters, const BlockSizes& blocks, const Work& work)
{
    Results results(net.quiet);
    const auto run = [&] {
        const CallMemory memory(blocks);
        work(results);
    };
    if (!net.quiet) {
        call_frame(enters, run);
        return 0;
    }
    quiet_frame(enters, run);
    return results.all_finite() ? 0 : 1;
}

// A caller's array that enters products, or null.
struct InputArray {
    const double* data = nullptr;
    std::uint64_t n = 0;

    bool has_infinity() const
    {
        return data != nullptr && !kernels().all_finite(data, n) &&
               std::any_of(data, data + n, [](double a) { return std::isinf(a); });
    }
};

// Whether the weights of a call are infinite somewhere: the caller's, or the handle's own ones for a null w.
inline bool infinite_weights(const VEMKNInfo& net, const double* w)
{
    if (w != nullptr) return InputArray{w, net.numel}.has_infinity();
    bool found = false;
    for_each_parameter(net.model, [&](const auto& part, std::size_t) {
        found = found || InputArray{elements(part), part.size()}.has_infinity();
    });
    return found;
}

// The scan that decides whether a call with traps may leave products to OpenBLAS (model/blas.h): not if an infinity is among
// what enters them, the weights, the inputs and the tangents or cotangents.
inline bool multiplies_infinities(const VEMKNInfo& net,
                                  const double* w,
                                  const Batch& batch,
                                  const InputArray& vectors)
{
    const InputArray inputs{batch.x, std::uint64_t{batch.rows} * batch.xcols};
    return infinite_weights(net, w) || vectors.has_infinity() || inputs.has_infinity();
}

// The body of every entry point that runs the network: work(model, X, Y, results) with the model to compute with that
// make_model() gives, the caller's rows, and what takes the results.
//   vectors : the tangents or cotangents that the call multiplies by, if any
//   needs : what it takes memory for
//   hold : gives what the call has to hold while it runs
// More input columns than the network takes end the process here, before the call holds anything: exit handlers may call.
template <class Hold, class MakeModel, class Work>
int computing_call(const VEMKNInfo& net,
                   const double* w,
                   const Batch& batch,
                   const InputArray& vectors,
                   const Needs& needs,
                   const Hold& hold,
                   const MakeModel& make_model,
                   const Work& work)
{
    print_banner_once();
    stop_if_too_wide(net.model, batch.xcols);
    [[maybe_unused]] const auto held = hold();
    const WithoutBlas products(net.enters == Enters::blas && !net.quiet &&
                               multiplies_infinities(net, w, batch, vectors));
    return framed_call(net, net.enters, block_sizes(net, needs), [&](Results& results) {
        const auto model = make_model();
        const InputRows X = batch.inputs(), Y = batch.targets();
        work(model, X, Y, results);
    });
}

// The same with a model of doubles at the caller's weights.
template <class Model = WorkModel, class Work>
int computing_call(const VEMKNInfo& net,
                   const double* w,
                   const Batch& batch,
                   const InputArray& vectors,
                   const Needs& needs,
                   const Work& work)
{
    const auto nothing = [] { return nullptr; };
    const auto make_model = [&] { return with_weights<Model>(net, w); };
    return computing_call(net, w, batch, vectors, needs, nothing, make_model, work);
}

}  // namespace VEMKN
