#pragma once

#include "kernels/kernels.h"

namespace VEMKN {

extern const Kernels KERNELS_SSE2;
extern const Kernels KERNELS_AVX2;
extern const Kernels KERNELS_AVX512;

}  // namespace VEMKN
