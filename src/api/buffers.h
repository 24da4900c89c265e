#pragma once

#include <algorithm>
#include <cmath>
#include <valarray>

#include "api/params.h"
#include "eval/input_width.h"
#include "model/block_row.h"

// Caller buffers on their way in and out. Inputs are read where they lie and outputs written at the end of a call, so
// that they may overlap.

namespace VEMKN {

// A caller's rows x cols array, or zeros of that shape in place of a null pointer.
class InputRows {
public:
    InputRows(const double* data, std::size_t rows, std::size_t cols)
    {
        if (data == nullptr) zeros_.resize(rows, cols);
        view_ = RowsView(data == nullptr ? zeros_.data() : data, rows, cols);
    }

    InputRows(const InputRows&) = delete;
    InputRows& operator=(const InputRows&) = delete;

    operator const RowsView&() const { return view_; }

private:
    MatrixTemplate<double> zeros_;
    RowsView view_;
};

// The input rows of a model. Too many columns end the process before zeros are made for that many.
template <class Model>
InputRows network_input(const Model& model, const double* data, std::size_t rows, std::size_t cols)
{
    check_input_width(model, cols);
    return InputRows(data, rows, cols);
}

// A copy of n values, or n zeros in place of a null pointer.
inline std::valarray<double> input_vector(const double* data, std::size_t n)
{
    return data == nullptr ? std::valarray<double>(n) : std::valarray<double>(data, n);
}

// Where results go: into caller arrays, of which a null one is not wanted. Entry points allocate nothing any more once
// they write, so that a call writes all of its results or none.
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
        if (out != nullptr) std::copy_n(values, n, out);
        if (!watch_) return;
        for (std::size_t i = 0; i < n; ++i) note(values[i]);
    }

    void write(double* out, double value)
    {
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
    void note(double value) { all_finite_ = all_finite_ && (!watch_ || std::isfinite(value)); }

    bool watch_;
    bool all_finite_ = true;
};

}  // namespace VEMKN
