#include "kernels/instruction_sets.h"
#include "kernels/loops.h"

// Highway takes one double at a time without a word where one of its flags is missing.
static_assert(VEMKN::Lane::WIDTH == 2);

namespace VEMKN {

constexpr Kernels KERNELS_NEON = kernels_for<Lane>("neon");

}  // namespace VEMKN
