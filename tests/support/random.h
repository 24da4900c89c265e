#pragma once

#include <cstdint>
#include <vector>

// Seeded numbers, the same on every machine, which the distributions of the standard library do not promise.
class Random {
public:
    explicit Random(std::uint64_t seed) : state_(seed) {}

    std::uint64_t next()
    {
        std::uint64_t z = state_ += 0x9e3779b97f4a7c15u;
        z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9u;
        z = (z ^ (z >> 27)) * 0x94d049bb133111ebu;
        return z ^ (z >> 31);
    }

    double uniform(double low, double high)
    {
        return low + (high - low) * (static_cast<double>(next() >> 11) * 0x1p-53);
    }

    // 0 ... n - 1
    unsigned below(unsigned n) { return static_cast<unsigned>(next() % n); }

    std::vector<double> list(std::size_t n, double low = -1.0, double high = 1.0)
    {
        std::vector<double> numbers(n);
        for (double& x : numbers) x = uniform(low, high);
        return numbers;
    }

private:
    std::uint64_t state_;
};
