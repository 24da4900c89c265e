#include "kernels/kernels.h"

#include "kernels/instruction_sets.h"

namespace VEMKN {

InstructionSet best_instruction_set()
{
#ifdef VEMKN_INSTRUCTION_SET
    return InstructionSet::VEMKN_INSTRUCTION_SET;  // a build for measurements and tests of one
#else
    __builtin_cpu_init();
    if (__builtin_cpu_supports("avx512f")) return InstructionSet::avx512;
    if (__builtin_cpu_supports("avx2")) return InstructionSet::avx2;
    return InstructionSet::sse2;
#endif
}

const Kernels& kernels_of(InstructionSet set)
{
    switch (set) {
        case InstructionSet::avx512:
            return KERNELS_AVX512;
        case InstructionSet::avx2:
            return KERNELS_AVX2;
        case InstructionSet::sse2:
            break;
    }
    return KERNELS_SSE2;
}

namespace {

const Kernels& IN_USE = kernels_of(best_instruction_set());

}  // namespace

const Kernels& kernels()
{
    return IN_USE;
}

}  // namespace VEMKN
