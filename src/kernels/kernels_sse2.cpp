#include "kernels/instruction_sets.h"
#include "kernels/lane_sse2.h"
#include "kernels/loops.h"

namespace VEMKN {

constexpr Kernels KERNELS_SSE2 = kernels_for<Lane>("sse2");

}  // namespace VEMKN
