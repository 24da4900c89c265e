#include "kernels/kernels.h"

#include "kernels/features.h"
#include "kernels/instruction_sets.h"

namespace VEMKN {

bool processor_has(InstructionSet set)
{
    return (features_of(set) & ~features_of_processor()) == 0;
}

InstructionSet best_instruction_set()
{
#ifdef VEMKN_INSTRUCTION_SET
    return InstructionSet::VEMKN_INSTRUCTION_SET;  // a build for measurements and tests of one
#else
    return best_instruction_set(features_of_processor());
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
