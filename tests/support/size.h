#pragma once

#include <cstdlib>
#include <cstring>

// How many seeded trials a test runs: the usual number, and fifty times as many at full size (scripts/test --full).
inline int trials(int usual)
{
    const char* const full = std::getenv("VEMKN_TEST_FULL");
    return full != nullptr && std::strcmp(full, "1") == 0 ? 50 * usual : usual;
}
