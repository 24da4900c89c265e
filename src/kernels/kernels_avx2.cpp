#include "kernels/instruction_sets.h"
#include "kernels/loops.h"

// Highway takes narrower registers without a word where one of its flags is missing.
static_assert(VEMKN::Lane::WIDTH == 4);

namespace VEMKN {

constexpr Kernels KERNELS_AVX2 = kernels_for<Lane>("avx2");

}  // namespace VEMKN
