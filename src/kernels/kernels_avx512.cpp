#include "kernels/instruction_sets.h"
#include "kernels/loops.h"

// Highway takes narrower registers without a word where one of its flags is missing.
static_assert(VEMKN::Lane::WIDTH == 8);

namespace VEMKN {

constexpr Kernels KERNELS_AVX512 = kernels_for<Lane>("avx512");

}  // namespace VEMKN
