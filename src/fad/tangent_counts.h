#pragma once

#include <cstdint>

#include "vemkn.h"

namespace yafad {

// How many tangents a carrier gets that is made without saying how many: matrices and vectors, and scalars. Process-wide.
// Hosts see them as g_ndd and FO::Dynamic::NDIR, which are written beside them: where a process holds two copies of the
// library, the second writes to the exported names of the first, but reads these of its own.
extern std::uint64_t tangent_count;
extern std::uint64_t scalar_tangent_count;

void set_tangent_counts(std::uint64_t for_matrices, std::uint64_t for_scalars);

// Leave to make carriers with a given number of tangents. Scalars and zeros that a call makes take their number of tangents from
// the counts: so a call holds one of these from before it makes its first carrier until the last one is gone. Calls with the
// same count hold it together, any other waits, first come first served. An exception releases it, and a fork's child starts
// with nobody holding it.
class TangentLock {
public:
    // Sets both counts.
    explicit TangentLock(std::uint64_t tangents);

    ~TangentLock();
    TangentLock(const TangentLock&) = delete;
    TangentLock& operator=(const TangentLock&) = delete;
};

// What the making of a handle does to the counts: that of matrices goes back to 1, that of scalars stays. Waits until no call
// holds a TangentLock.
void reset_tangent_count();

}  // namespace yafad
