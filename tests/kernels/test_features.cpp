#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>
#include <utility>

#include "kernels/features.h"

using namespace VEMKN;

namespace {

constexpr std::pair<Features, const char*> NAMES_OF_THE_SYSTEM[] = {
    {feature::SSE4_1, "sse4_1"},
    {feature::SSE4_2, "sse4_2"},
    {feature::POPCNT, "popcnt"},
    {feature::AES, "aes"},
    {feature::PCLMUL, "pclmulqdq"},
    {feature::AVX2, "avx2"},
    {feature::FMA, "fma"},
    {feature::BMI1, "bmi1"},
    {feature::BMI2, "bmi2"},
    {feature::LZCNT, "abm"},
    {feature::MOVBE, "movbe"},
    {feature::F16C, "f16c"},
    {feature::AVX512F, "avx512f"},
    {feature::AVX512BW, "avx512bw"},
    {feature::AVX512CD, "avx512cd"},
    {feature::AVX512DQ, "avx512dq"},
    {feature::AVX512VL, "avx512vl"},
};

// The features that the system lists, or none if it lists nothing.
Features listed_by_the_system()
{
    std::ifstream info("/proc/cpuinfo");
    for (std::string line; std::getline(info, line);) {
        if (line.rfind("flags", 0) != 0) continue;
        Features found = 0;
        std::istringstream words(line);
        for (std::string word; words >> word;) {
            for (const auto& [one, name] : NAMES_OF_THE_SYSTEM) {
                if (word == name) found |= one;
            }
        }
        return found;
    }
    return 0;
}

}  // namespace

TEST(Features, AreThoseThatTheSystemLists)
{
    const Features listed = listed_by_the_system();
    if (listed == 0) GTEST_SKIP() << "the system lists none";
    // These three are asked of the processor itself, whatever the system hides; all sets that use them use others too.
    constexpr Features BY_PROCESSOR = feature::LZCNT | feature::MOVBE | feature::F16C;
    for (const auto& [one, name] : NAMES_OF_THE_SYSTEM) {
        if ((one & BY_PROCESSOR) != 0 && (listed & one) == 0) continue;
        EXPECT_EQ(listed & one, features_of_processor() & one) << name;
    }
}

TEST(Features, AreEnoughForASetIfAllAreThere)
{
    EXPECT_EQ(InstructionSet::avx512, best_instruction_set(~Features{0}));
    for (const auto set : {InstructionSet::baseline,
                           InstructionSet::sse4,
                           InstructionSet::avx2,
                           InstructionSet::avx512})
        EXPECT_EQ(set, best_instruction_set(features_of(set)));
}

// Each one lacking by itself costs the sets that use it and no other.
TEST(Features, LeaveTheLesserKernelsWhereOneIsLacking)
{
    for (const auto& [one, name] : NAMES_OF_THE_SYSTEM) {
        InstructionSet expected = InstructionSet::avx2;
        if (one <= feature::F16C) expected = InstructionSet::sse4;
        if (one <= feature::PCLMUL) expected = InstructionSet::baseline;
        EXPECT_EQ(expected, best_instruction_set(~one)) << name;
    }
}
