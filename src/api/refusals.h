#pragma once

#include <cstdint>

#include "api/handle.h"

namespace VEMKN {

// What a refused entry point returns.
inline constexpr int REFUSED = -1;

// The checks that stand before the call frame. Each returns whether the call is refused, and then has written one line
// on standard error that names the entry point, what was wrong and both numbers.
class Refusal {
public:
    Refusal(const char* entry, const VEMKNInfo* net) : entry_(entry), net_(net) {}

    bool null_handle() const;
    // A null handle, or a network that cannot be evaluated.
    bool network() const;
    // A norm name that the description left unknown.
    bool norm() const;

    bool normed_network() const { return network() || norm(); }

    // nw (or n, as the entry point calls it) against the number of parameters.
    bool weight_count(unsigned nw, const char* name = "nw") const;

    // The same, where a null w leaves nw without meaning.
    bool weight_count(const double* w, unsigned nw) const
    {
        return w != nullptr && weight_count(nw);
    }

    // The number of target columns against the number of outputs, and the number of residuals.
    bool residuals(unsigned nrows, unsigned ycols) const;
    // A product of 32-bit counts that must stay below 2^32; of three only where that of the first two is known to.
    bool too_many(const char* what, std::uint64_t a, std::uint64_t b, std::uint64_t c = 1) const;
    // The number of direction values, and more directions than the tangents of row order.
    bool directions(bool row_order, unsigned nw, unsigned nv) const;
    // A mean over nothing.
    bool empty_batch(unsigned nrows) const;

private:
    template <class... Parts>
    bool refuse(const Parts&... parts) const;

    const char* entry_;
    const VEMKNInfo* net_;
};

}  // namespace VEMKN
