#ifndef VEMKN_EXAMPLES_RANDOM_H
#define VEMKN_EXAMPLES_RANDOM_H

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <random>
#include <utility>
#include <vector>

namespace examples {

/** Seeded numbers. The distributions of <random> differ between standard libraries; a seed printed
 * in a report should mean the same weights elsewhere, so they are made by hand here. */
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

    /// 0 ... count-1 in random order.
    std::vector<std::size_t> permutation(std::size_t count)
    {
        std::vector<std::size_t> order(count);
        for (std::size_t i = 0; i < count; ++i) order[i] = i;
        for (std::size_t i = count; i > 1; --i)
            std::swap(order[i - 1],
                      order[static_cast<std::size_t>(uniform() * static_cast<double>(i))]);
        return order;
    }

private:
    std::mt19937_64 engine_;
};

}  // namespace examples

#endif
