#pragma once

#include <cstdint>

#include "vemkn.h"

namespace yafad {

// Leave to make carriers with a given number of tangents. The two counts are process-wide, and every carrier made
// during a call takes its number of tangents from them: so a call holds one of these from before it makes its first
// carrier until the last one is gone. Calls with the same count hold it together, any other waits, first come first
// served. An exception releases it, and a fork's child starts with nobody holding it.
class TangentLock {
public:
    // A derivative call with that many tangents: sets g_ndd and NDIR.
    explicit TangentLock(std::uint64_t tangents);

    // The building of a handle: sets g_ndd to 1 and leaves NDIR. Shared with nobody.
    struct Creation {};

    explicit TangentLock(Creation);

    ~TangentLock();
    TangentLock(const TangentLock&) = delete;
    TangentLock& operator=(const TangentLock&) = delete;
};

}  // namespace yafad
