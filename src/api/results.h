#pragma once

#include <algorithm>
#include <cmath>

#include "model/block_row.h"
#include "model/params.h"
#include "runtime/traps.h"

namespace VEMKN {

// Where results go: into caller arrays, of which a null one is not wanted. Entry points allocate nothing any more once
// they write, so that a call writes all of its results or none; and they write last, so that outputs may overlap inputs.
class Results {
public:
    // With watch, looks whether what is written is finite.
    explicit Results(bool watch) : watch_(watch) {}

    // The elements of a vector or a matrix.
    template <class Array>
    void write(double* out, const Array& values)
    {
        write(out, elements(values), values.size());
    }

    void write(double* out, const double* values, std::size_t n)
    {
        begin();
        if (out != nullptr) std::copy_n(values, n, out);
        if (!watch_) return;
        for (std::size_t i = 0; i < n; ++i) note(values[i]);
    }

    void write(double* out, double value)
    {
        begin();
        if (out != nullptr) *out = value;
        note(value);
    }

    // The parameters of a gradient, in their flat order.
    template <class Matrix, class Vector>
    void write(double* out, const NNTemplate<Matrix, Vector, double>& grad)
    {
        for_each_parameter(grad, [&](const auto& part, std::size_t first) {
            write(out == nullptr ? out : out + first, part);
        });
    }

    // The parameters of one of several gradients side by side, in their flat order.
    void write(double* out, const NNTemplate<BlockRow, BlockRow, double>& grads, std::size_t k)
    {
        for_each_parameter(grads, [&](const BlockRow& part, std::size_t first) {
            for (std::size_t r = 0; r < part.rows(); ++r) {
                double* const to = out == nullptr ? out : out + first + r * part.cols();
                write(to, part.at(k, r), part.cols());
            }
        });
    }

    // Whether everything written under watch was finite, wanted or not.
    bool all_finite() const { return all_finite_; }

private:
    // All has been computed before the first of them is written.
    void begin()
    {
        if constexpr (TRAPS_MAY_BE_MISSING) {
            if (!begun_) look_at_flags();
            begun_ = true;
        }
    }

    void note(double value) { all_finite_ = all_finite_ && (!watch_ || std::isfinite(value)); }

    bool watch_;
    bool all_finite_ = true;
    [[maybe_unused]] bool begun_ = false;
};

}  // namespace VEMKN
