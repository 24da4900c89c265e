#pragma once

#include <cstdint>

#include "kernels/kernels.h"

namespace VEMKN {

// What a processor may have, of what the flags of the kernels' files (src/CMakeLists.txt) let the compiler use.
namespace feature {
enum Feature : std::uint32_t {
    SSE4_1 = 1u << 0,
    SSE4_2 = 1u << 1,
    POPCNT = 1u << 2,
    AES = 1u << 3,
    PCLMUL = 1u << 4,
    AVX2 = 1u << 5,
    FMA = 1u << 6,
    BMI1 = 1u << 7,
    BMI2 = 1u << 8,
    LZCNT = 1u << 9,
    MOVBE = 1u << 10,
    F16C = 1u << 11,
    AVX512F = 1u << 12,
    AVX512BW = 1u << 13,
    AVX512CD = 1u << 14,
    AVX512DQ = 1u << 15,
    AVX512VL = 1u << 16,
};
}  // namespace feature

using Features = std::uint32_t;

// All that a set's kernels may use.
Features features_of(InstructionSet set);

// Those of this processor. Of what has registers of its own, those that the operating system saves.
Features features_of_processor();

// The best set that has no feature besides.
InstructionSet best_instruction_set(Features features);

}  // namespace VEMKN
