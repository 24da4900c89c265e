// One double at a time: GCC 12.2 cannot compile Highway's registers of arrays.
#define HWY_COMPILE_ONLY_SCALAR

#include "kernels/instruction_sets.h"
#include "kernels/loops.h"

static_assert(VEMKN::Lane::WIDTH == 1);

namespace VEMKN {

constexpr Kernels KERNELS_BASELINE = kernels_for<Lane>("baseline");

}  // namespace VEMKN
