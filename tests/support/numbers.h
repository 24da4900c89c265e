#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

// Number lists of the tests: seeded random ones, and how lists are compared.

using Numbers = std::vector<double>;

inline constexpr double INF = std::numeric_limits<double>::infinity();
inline constexpr double QUIET_NAN = std::numeric_limits<double>::quiet_NaN();
// Spacing of the doubles at 1.
inline constexpr double EPS = std::numeric_limits<double>::epsilon();

// The same numbers on every machine, which the distributions of the standard library do not promise.
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

    Numbers list(std::size_t n, double low = -1.0, double high = 1.0)
    {
        Numbers numbers(n);
        for (double& x : numbers) x = uniform(low, high);
        return numbers;
    }

private:
    std::uint64_t state_;
};

// For comparisons to the bit, where -0.0 is not 0.0 and a NaN equals itself.
inline std::uint64_t bits(double x)
{
    std::uint64_t pattern;
    std::memcpy(&pattern, &x, sizeof pattern);
    return pattern;
}

template <class List>
std::vector<std::uint64_t> bits_of(const List& list)
{
    std::vector<std::uint64_t> patterns;
    patterns.reserve(std::size(list));
    for (const double x : list) patterns.push_back(bits(x));
    return patterns;
}

inline bool is_negative_zero(double x)
{
    return bits(x) == bits(-0.0);
}

// Distance of x from the truth in units of the spacing of the doubles at the truth.
inline long double ulps(double x, long double truth)
{
    const double at = std::fabs(static_cast<double>(truth));
    const double spacing = std::nextafter(at, INF) - at;
    return std::fabs(static_cast<long double>(x) - truth) / static_cast<long double>(spacing);
}

// Every element within tolerance of the truth; written so that a NaN fails.
template <class List, class Truth>
void expect_close(const List& computed,
                  const Truth& truth,
                  double tolerance,
                  const std::string& what = "element")
{
    ASSERT_EQ(truth.size(), computed.size()) << what;
    for (std::size_t i = 0; i < truth.size(); ++i) {
        const auto difference = std::fabs(static_cast<long double>(computed[i]) - truth[i]);
        EXPECT_TRUE(difference <= static_cast<long double>(tolerance))
            << what << " " << i << ": " << computed[i] << " is not " << truth[i] << " to "
            << tolerance;
    }
}
