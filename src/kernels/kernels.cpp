#include "kernels/kernels.h"

#include "kernels/instruction_sets.h"
#ifdef __x86_64__
#include "kernels/features.h"
#endif

namespace VEMKN {

#ifdef __x86_64__
bool processor_has(InstructionSet set)
{
    return (features_of(set) & ~features_of_processor()) == 0;
}
#else
bool processor_has(InstructionSet)
{
    return true;
}
#endif

InstructionSet best_instruction_set()
{
#if defined(VEMKN_INSTRUCTION_SET)
    return InstructionSet::VEMKN_INSTRUCTION_SET;  // a build for measurements and tests of one
#elif defined(__x86_64__)
    return best_instruction_set(features_of_processor());
#else
    return InstructionSet::neon;
#endif
}

const Kernels& kernels_of(InstructionSet set)
{
    switch (set) {
#ifdef __x86_64__
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
#else
        case InstructionSet::neon:
            break;
    }
    return KERNELS_NEON;
#endif
}

namespace {

const Kernels& IN_USE = kernels_of(best_instruction_set());

}  // namespace

const Kernels& kernels()
{
    return IN_USE;
}

}  // namespace VEMKN
