#pragma once

#include <algorithm>
#include <cstdint>

#include "fad/bundle.h"

namespace yafad {

// How a caller's tangents seed carriers. Column order (vemkn_rowmajor 0): entry k of tangent d at [k*nv + d], and nv
// tangents are carried. Row order: at [d*nw + k]. Deliberate: in row order nw tangents are carried, whatever nv is; the
// caller passes a square matrix, and tangents that are not there count as zero.
class Seeding {
public:
    Seeding(bool row_order, unsigned nw, unsigned nv) : row_order_(row_order), nw_(nw), nv_(nv) {}

    // Number of tangents to carry.
    std::uint64_t tangents() const { return row_order_ ? nw_ : nv_; }

    // Deliberate: a single weight with a single tangent is differentiated along 1.0 whatever the caller passed.
    bool is_identity() const { return nw_ == 1 && nv_ == 1; }

    // part = the weights w with the entries of the tangents v from the first one on as derivatives. Where there are none
    // (null v, or fewer of them than are carried), those of a constant: the weight times 0.0, which is formed in any case,
    // so that an infinite weight raises its exception.
    void seed(Bundle& part, std::size_t first, const double* w, const double* v) const
    {
        const std::size_t cols = part.cols(), n = part.tangents();
        std::copy_n(w, part.size(), part.value.data());
        if (n == 0) return;
        const VEMKN::PassingMemory memory;
        AlignedArray of_constant(part.value.data(), part.size());
        for (double& derivative : of_constant) derivative *= 0.0;
        const std::size_t given = v == nullptr ? 0 : std::min(nv_, n);
        for_each_entry(part, [&](std::size_t i, double* tangent) {
            for (std::size_t d = 0; d < given; ++d) {
                tangent[d * cols] = v[index(first + i, d, nw_)];
            }
            for (std::size_t d = given; d < n; ++d) tangent[d * cols] = of_constant[i];
            if (is_identity()) *tangent = 1.0;
        });
    }

    // The first nv derivatives of part into the caller's order, where whole holds nv of n entries and part is
    // those from entry `first` on.
    void put_derivatives(double* whole, const Bundle& part, std::size_t first, std::size_t n) const
    {
        if (nv_ == 0) return;  // nor is there a place where derivatives lie
        const std::size_t cols = part.cols();
        for_each_entry(part, [&](std::size_t i, const double* derivative) {
            for (std::size_t d = 0; d < nv_; ++d) {
                whole[index(first + i, d, n)] = derivative[d * cols];
            }
        });
    }

private:
    // body(i, where its first derivative is) for every entry i, row by row.
    template <class Part, class Body>
    static void for_each_entry(Part& part, const Body& body)
    {
        const std::size_t cols = part.cols();
        for (std::size_t r = 0; r < part.rows(); ++r) {
            for (std::size_t c = 0; c < cols; ++c) {
                body(r * cols + c, part.derivatives.at(0, r) + c);
            }
        }
    }

    // Place of entry i of tangent d among tangents of n entries.
    std::size_t index(std::size_t i, std::size_t d, std::size_t n) const
    {
        return row_order_ ? d * n + i : i * nv_ + d;
    }

    bool row_order_;
    std::size_t nw_;
    std::size_t nv_;
};

}  // namespace yafad
