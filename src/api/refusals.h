#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "api/batch.h"
#include "api/handle.h"

namespace VEMKN {

// What a refused entry point returns.
inline constexpr int REFUSED = -1;

// The checks that stand before a call: each finds one reason to refuse it, as the text that is printed, or none. Those of a
// network want a handle that is not null, but for no_handle and the ones that begin with it.
using Reason = std::optional<std::string>;

Reason no_handle(const VEMKNInfo* net);
// No handle, or a network that cannot be evaluated.
Reason unusable_network(const VEMKNInfo* net);
// A norm name that the description left unknown.
Reason no_norm(const VEMKNInfo* net);
// nw (or n, as the entry point calls it) other than the number of parameters.
Reason wrong_weight_count(const VEMKNInfo* net, unsigned nw, const char* name = "nw");
// A product of 32-bit counts that is 2^32 or more; of three only where that of the first two is known not to be.
Reason too_many(const char* what, std::uint64_t a, std::uint64_t b, std::uint64_t c = 1);
// Too many tangent values, or more tangents than row order carries.
Reason wrong_tangents(bool row_order, unsigned nw, unsigned nv);
// A mean over nothing.
Reason empty_batch(const Batch& batch);

// How many weights a call hands over, which nobody asks where it hands over none.
inline std::optional<unsigned> count_of(const double* w, unsigned nw)
{
    return w == nullptr ? std::nullopt : std::optional(nw);
}

// What every call on a batch with targets is refused for: an unusable network, a wrong number of weights where it counts,
// a wrong number of target columns, too many residuals. And the same for a call that uses the norm.
Reason unfit_for_residuals(const VEMKNInfo* net, std::optional<unsigned> nw, const Batch& batch);
Reason unfit_for_norms(const VEMKNInfo* net, std::optional<unsigned> nw, const Batch& batch);

// Writes one line on standard error that names the entry point and the reason; returns what the entry point returns.
int refuse(const char* entry, const Reason& why);

}  // namespace VEMKN
