#pragma once

#include "kernels/kernels.h"

// The kernels of one instruction set each, from files with flags of their own: src/CMakeLists.txt.

namespace VEMKN {

#ifdef __x86_64__
extern const Kernels KERNELS_BASELINE;
extern const Kernels KERNELS_SSE4;
extern const Kernels KERNELS_AVX2;
extern const Kernels KERNELS_AVX512;
#else
extern const Kernels KERNELS_NEON;
#endif

}  // namespace VEMKN
