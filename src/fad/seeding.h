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

    // part = the weights w[first ...] with the entries of the directions v there as derivatives. Where there are none
    // (null v, or fewer directions than tangents), those of a constant: the weight times 0.0, which is formed in any case,
    // so that an infinite weight raises its exception.
    template <class T>
    void seed(fad1<T>& part, std::size_t first, const double* w, const double* v) const
    {
        part.set_directions(directions());
        for (T& derivative : part.derivatives) VEMKN::take_shape(part.value, derivative);
        std::copy_n(w + first, part.size(), elements(part.value));
        if (directions() == 0) return;
        VEMKN::AlignedArray of_constant(elements(part.value), part.size());
        for (double& derivative : of_constant) derivative *= 0.0;
        for (std::size_t d = 0; d < part.directions(); ++d) {
            double* const tangent = elements(part.derivatives[d]);
            const bool given = v != nullptr && d < nv_;
            for (std::size_t k = 0; k < part.size(); ++k) {
                if (is_identity()) {
                    tangent[k] = 1.0;
                } else {
                    tangent[k] = given ? v[index(first + k, d, nw_)] : of_constant[k];
                }
            }
        }
    }

    // out = the first nv derivatives of result in the caller's order, where out holds nv directions of n entries and
    // result is those from entry `first` on.
    template <class T>
    void write_derivatives(VEMKN::Results& results,
                           double* out,
                           const fad1<T>& result,
                           std::size_t first,
                           std::size_t n) const
    {
        for (std::size_t d = 0; d < nv_; ++d) {
            results.write(out == nullptr ? out : out + index(first, d, n),
                          result.derivatives[d],
                          row_order_ ? 1 : nv_);
        }
    }

    // The same into a whole array, in memory.
    template <class T>
    void put_derivatives(double* whole, const fad1<T>& part, std::size_t first, std::size_t n) const
    {
        for (std::size_t d = 0; d < nv_; ++d) {
            const double* const from = elements(part.derivatives[d]);
            for (std::size_t i = 0; i < part.size(); ++i) whole[index(first + i, d, n)] = from[i];
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
