#pragma once

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
        AlignedArray of_constant(part.value.data(), part.size());
        for (double& derivative : of_constant) derivative *= 0.0;
        for (std::size_t i = 0; i < part.size(); ++i) {
            double* const tangent = part.derivatives.at(0, i / cols) + i % cols;
            for (std::size_t d = 0; d < n; ++d) {
                const bool given = v != nullptr && d < nv_;
                const double derivative = given ? v[index(first + i, d, nw_)] : of_constant[i];
                tangent[d * cols] = is_identity() ? 1.0 : derivative;
            }
        }
    }

    // The first nv derivatives of part into the caller's order, where whole holds nv of n entries and part is
    // those from entry `first` on.
    void put_derivatives(double* whole, const Bundle& part, std::size_t first, std::size_t n) const
    {
        if (nv_ == 0) return;  // nor is there a place where derivatives lie
        const std::size_t cols = part.cols();
        for (std::size_t i = 0; i < part.size(); ++i) {
            const double* const derivative = part.derivatives.at(0, i / cols) + i % cols;
            for (std::size_t d = 0; d < nv_; ++d) {
                whole[index(first + i, d, n)] = derivative[d * cols];
            }
        }
    }

private:
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
