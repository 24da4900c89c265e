#pragma once

#include <vector>

#include "kernels/kernels.h"

// The instruction sets that this processor runs.
inline std::vector<VEMKN::InstructionSet> available_instruction_sets()
{
    using VEMKN::InstructionSet;
    std::vector<InstructionSet> sets;
    for (const auto set : VEMKN::INSTRUCTION_SETS) {
        if (VEMKN::processor_has(set)) sets.push_back(set);
    }
    return sets;
}
