#include "kernels/instruction_sets.h"
#include "kernels/lane_avx2.h"
#include "kernels/loops.h"

namespace VEMKN {

constexpr Kernels KERNELS_AVX2 = kernels_for<Lane>("avx2");

}  // namespace VEMKN
