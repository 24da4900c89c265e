#pragma once

#include <cstdint>

#include "vemkn.h"

namespace yafad {

// Leave to make carriers with a given number of directions. The two counts are process-wide, and every carrier made
// during a call takes its number of tangents from them: so a call holds one of these from before it makes its first
// carrier until the last one is gone. Calls with the same count hold it together, any other waits, first come first
// served. An exception releases it, and a fork's child starts with nobody holding it.
class DirectionLock {
public:
    // A derivative call with that many directions: sets g_ndd and NDIR.
    explicit DirectionLock(std::uint64_t directions);

    // The building of a handle: sets g_ndd to 1 and leaves NDIR. Shared with nobody.
    struct Creation {};

    explicit DirectionLock(Creation);

    ~DirectionLock();
    DirectionLock(const DirectionLock&) = delete;
    DirectionLock& operator=(const DirectionLock&) = delete;
};

}  // namespace yafad
