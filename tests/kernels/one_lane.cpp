#include "kernels/one_lane.h"

#include "kernels/loops.h"

namespace VEMKN {
namespace {

using OneLane = LaneOf<hn::CappedTag<double, 1>>;
static_assert(OneLane::WIDTH == 1);

constexpr Kernels ONE_LANE = kernels_for<OneLane>("one lane");

}  // namespace
}  // namespace VEMKN

const VEMKN::Kernels& one_lane_kernels()
{
    return VEMKN::ONE_LANE;
}
