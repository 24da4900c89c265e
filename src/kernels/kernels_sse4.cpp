#include "kernels/instruction_sets.h"
#include "kernels/loops.h"

// Highway takes narrower registers without a word where one of its flags is missing.
static_assert(VEMKN::Lane::WIDTH == 2);

namespace VEMKN {

constexpr Kernels KERNELS_SSE4 = kernels_for<Lane>("sse4");

}  // namespace VEMKN
