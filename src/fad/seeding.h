#pragma once

#include <cstdint>

#include "api/buffers.h"
#include "fad/fad1.h"

namespace yafad {

// How a caller's direction matrix maps onto tangents. Column order (vemkn_rowmajor 0): entry k of direction d at
// [k*nv + d], and one tangent for each of the nv directions. Row order: at [d*nw + k]. Deliberate: in row order the number
// of tangents is nw, whatever nv is; the caller passes a square matrix, and directions that are not there count as zero.
class Seeding {
public:
    Seeding(bool row_order, unsigned nw, unsigned nv) : row_order_(row_order), nw_(nw), nv_(nv) {}

    // Number of tangents to carry.
    std::uint64_t directions() const { return row_order_ ? nw_ : nv_; }

    // Deliberate: a single weight with a single direction is differentiated along 1.0 whatever the caller passed.
    bool is_identity() const { return nw_ == 1 && nv_ == 1; }

    // The weights w with the directions v as derivatives; null v: zeros.
    VectorCarrier seeded(const std::valarray<double>& w, const double* v) const
    {
        VectorCarrier carrier(w, directions());
        if (is_identity()) {
            carrier.derivatives[0] = 1.0;
        } else if (v != nullptr) {
            for (std::size_t d = 0; d < nv_; ++d) {
                std::valarray<double>& tangent = carrier.derivatives[d];
                for (std::size_t k = 0; k < nw_; ++k) tangent[k] = v[index(k, d, nw_)];
            }
        }
        return carrier;
    }

    // out = the first nv derivatives of result, in the caller's order.
    void write_derivatives(VEMKN::Results& results, double* out, const VectorCarrier& result) const
    {
        const std::size_t n = result.size();
        for (std::size_t d = 0; d < nv_; ++d) {
            results.write(out == nullptr ? out : out + index(0, d, n),
                          result.derivatives[d],
                          row_order_ ? 1 : nv_);
        }
    }

private:
    // Place of entry i of direction d among directions of n entries.
    std::size_t index(std::size_t i, std::size_t d, std::size_t n) const
    {
        return row_order_ ? d * n + i : i * nv_ + d;
    }

    bool row_order_;
    std::size_t nw_;
    std::size_t nv_;
};

}  // namespace yafad
