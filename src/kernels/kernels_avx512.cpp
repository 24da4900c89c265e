#include "kernels/instruction_sets.h"
#include "kernels/lane_avx512.h"
#include "kernels/loops.h"

namespace VEMKN {

constexpr Kernels KERNELS_AVX512 = kernels_for<Lane>("avx512");

}  // namespace VEMKN
