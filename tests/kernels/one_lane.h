#pragma once

#include "kernels/kernels.h"

// The loops compiled for AVX2 and FMA with one double to a register: what the wide ones have to equal, to the bit. Not so the
// product, which is that of AVX2. The processor must have both.
const VEMKN::Kernels& one_lane_kernels();
