#include "kernels/features.h"

#include <cpuid.h>

namespace VEMKN {

using namespace feature;

Features features_of(InstructionSet set)
{
    constexpr Features OF_SSE4 = SSE4_1 | SSE4_2 | POPCNT | AES | PCLMUL;
    constexpr Features OF_AVX2 = OF_SSE4 | AVX2 | FMA | BMI1 | BMI2 | LZCNT | MOVBE | F16C;
    switch (set) {
        case InstructionSet::avx512:
            return OF_AVX2 | AVX512F | AVX512BW | AVX512CD | AVX512DQ | AVX512VL;
        case InstructionSet::avx2:
            return OF_AVX2;
        case InstructionSet::sse4:
            return OF_SSE4;
        case InstructionSet::baseline:
            break;
    }
    return 0;
}

// The compiler's own question covers the state that the operating system has to save; three names it does not know.
Features features_of_processor()
{
    __builtin_cpu_init();
    Features found = 0;
    const auto add_if = [&](bool is_there, Feature one) {
        if (is_there) found |= one;
    };
    unsigned a = 0, b = 0, basic = 0, extended = 0, d = 0;
    __get_cpuid(1, &a, &b, &basic, &d);
    __get_cpuid(0x80000001, &a, &b, &extended, &d);
    add_if(__builtin_cpu_supports("sse4.1"), SSE4_1);
    add_if(__builtin_cpu_supports("sse4.2"), SSE4_2);
    add_if(__builtin_cpu_supports("popcnt"), POPCNT);
    add_if(__builtin_cpu_supports("aes"), AES);
    add_if(__builtin_cpu_supports("pclmul"), PCLMUL);
    add_if(__builtin_cpu_supports("avx2"), AVX2);
    add_if(__builtin_cpu_supports("fma"), FMA);
    add_if(__builtin_cpu_supports("bmi"), BMI1);
    add_if(__builtin_cpu_supports("bmi2"), BMI2);
    add_if((extended & bit_LZCNT) != 0, LZCNT);
    add_if((basic & bit_MOVBE) != 0, MOVBE);
    add_if((basic & bit_F16C) != 0, F16C);
    add_if(__builtin_cpu_supports("avx512f"), AVX512F);
    add_if(__builtin_cpu_supports("avx512bw"), AVX512BW);
    add_if(__builtin_cpu_supports("avx512cd"), AVX512CD);
    add_if(__builtin_cpu_supports("avx512dq"), AVX512DQ);
    add_if(__builtin_cpu_supports("avx512vl"), AVX512VL);
    return found;
}

InstructionSet best_instruction_set(Features features)
{
    constexpr InstructionSet FROM_BEST[] = {
        InstructionSet::avx512, InstructionSet::avx2, InstructionSet::sse4};
    for (const InstructionSet set : FROM_BEST) {
        if ((features_of(set) & ~features) == 0) return set;
    }
    return InstructionSet::baseline;
}

}  // namespace VEMKN
