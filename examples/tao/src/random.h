#ifndef VEMKN_TAO_RANDOM_H
#define VEMKN_TAO_RANDOM_H

#include <cmath>
#include <cstdint>
#include <random>

namespace vemkn_tao {

/** Seeded numbers. The distributions of <random> differ between standard libraries; a seed should
 * mean the same file and the same start everywhere, so they are made by hand here. */
class Random {
public:
    explicit Random(std::uint64_t seed) : engine_(seed) {}

    /// In [0, 1).
    double uniform() { return static_cast<double>(engine_() >> 11U) * 0x1p-53; }

    double normal()
    {
        const double radius = std::sqrt(-2.0 * std::log(1.0 - uniform()));
        return radius * std::cos(6.283185307179586 * uniform());
    }

private:
    std::mt19937_64 engine_;
};

}  // namespace vemkn_tao

#endif
