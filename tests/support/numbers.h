#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "support/random.h"

// Number lists of the tests, and how they are compared.

using Numbers = std::vector<double>;

inline constexpr double INF = std::numeric_limits<double>::infinity();
inline constexpr double QUIET_NAN = std::numeric_limits<double>::quiet_NaN();
// Spacing of the doubles at 1.
inline constexpr double EPS = std::numeric_limits<double>::epsilon();

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
