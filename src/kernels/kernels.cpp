#include "kernels/kernels.h"

#include <cpuid.h>

#include "kernels/instruction_sets.h"

namespace VEMKN {

namespace {

// What the compiler may use in a file with these flags, each of which the processor must have. The compiler's own question
// covers the state that the operating system has to save; some names it does not know.
bool has_sse4()
{
    return __builtin_cpu_supports("sse4.1") && __builtin_cpu_supports("sse4.2") &&
           __builtin_cpu_supports("popcnt") && __builtin_cpu_supports("aes") &&
           __builtin_cpu_supports("pclmul");
}

bool has_avx2()
{
    unsigned a = 0, b = 0, basic = 0, extended = 0, d = 0;
    __get_cpuid(1, &a, &b, &basic, &d);
    __get_cpuid(0x80000001, &a, &b, &extended, &d);
    return has_sse4() && __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma") &&
           __builtin_cpu_supports("bmi") && __builtin_cpu_supports("bmi2") &&
           (basic & bit_MOVBE) != 0 && (basic & bit_F16C) != 0 && (extended & bit_LZCNT) != 0;
}

bool has_avx512()
{
    return has_avx2() && __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
           __builtin_cpu_supports("avx512cd") && __builtin_cpu_supports("avx512dq") &&
           __builtin_cpu_supports("avx512vl");
}

}  // namespace

bool processor_has(InstructionSet set)
{
    __builtin_cpu_init();
    switch (set) {
        case InstructionSet::avx512:
            return has_avx512();
        case InstructionSet::avx2:
            return has_avx2();
        case InstructionSet::sse4:
            return has_sse4();
        case InstructionSet::baseline:
            break;
    }
    return true;
}

InstructionSet best_instruction_set()
{
#ifdef VEMKN_INSTRUCTION_SET
    return InstructionSet::VEMKN_INSTRUCTION_SET;  // a build for measurements and tests of one
#else
    constexpr InstructionSet FROM_BEST[] = {
        InstructionSet::avx512, InstructionSet::avx2, InstructionSet::sse4};
    for (const InstructionSet set : FROM_BEST) {
        if (processor_has(set)) return set;
    }
    return InstructionSet::baseline;
#endif
}

const Kernels& kernels_of(InstructionSet set)
{
    switch (set) {
        case InstructionSet::avx512:
            return KERNELS_AVX512;
        case InstructionSet::avx2:
            return KERNELS_AVX2;
        case InstructionSet::sse4:
            return KERNELS_SSE4;
        case InstructionSet::baseline:
            break;
    }
    return KERNELS_BASELINE;
}

namespace {

const Kernels& IN_USE = kernels_of(best_instruction_set());

}  // namespace

const Kernels& kernels()
{
    return IN_USE;
}

}  // namespace VEMKN
