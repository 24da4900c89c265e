#pragma once

#include <cstdlib>
#include <cstring>

// How large a run is: the usual size, or full size (scripts/test --full).
inline bool full_size()
{
    const char* const full = std::getenv("VEMKN_TEST_FULL");
    return full != nullptr && std::strcmp(full, "1") == 0;
}

inline int usual_or_full(int usual, int full)
{
    return full_size() ? full : usual;
}

// The whole number of repetitions, a tenth of it under a sanitizer, which takes several times as long for each.
inline int unless_sanitized(int all)
{
#if defined(VEMKN_SANITIZED)
    return all / 10;
#else
    return all;
#endif
}

// How many seeded trials a test runs: the usual number, and fifty times as many at full size.
inline int trials(int usual)
{
    return usual_or_full(usual, 50 * usual);
}
