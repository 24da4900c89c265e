#pragma once

#include <cmath>
#include <cstdint>
#include <numbers>
#include <random>

namespace vemknfit {

// Seeded numbers, the same with every standard library, whose distributions differ.
class Random {
public:
    // Streams of one seed have nothing in common.
    Random(std::uint64_t seed, std::uint32_t stream)
    {
        std::seed_seq words{
            static_cast<std::uint32_t>(seed), static_cast<std::uint32_t>(seed >> 32U), stream};
        engine_.seed(words);
    }

    // In [0, 1).
    double uniform() { return static_cast<double>(engine_() >> 11U) * 0x1p-53; }

    double normal()
    {
        const double radius = std::sqrt(-2.0 * std::log(1.0 - uniform()));
        return radius * std::cos(2.0 * std::numbers::pi * uniform());
    }

private:
    std::mt19937_64 engine_;
};

}  // namespace vemknfit
