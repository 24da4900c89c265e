#pragma once

#include "model/matrix.h"

namespace VEMKN {

// A caller's rows x cols array, read where it lies, or zeros of that shape in place of a null pointer.
class InputRows {
public:
    InputRows(const double* data, std::size_t rows, std::size_t cols)
    {
        if (data == nullptr) set_zero(zeros_, rows, cols);
        view_ = RowsView(data == nullptr ? zeros_.data() : data, rows, cols);
    }

    InputRows(const InputRows&) = delete;
    InputRows& operator=(const InputRows&) = delete;

    operator const RowsView&() const { return view_; }

private:
    WorkMatrix zeros_;
    RowsView view_;
};

// What a host hands to a call that runs the network: rows of inputs and of targets, either of which may be null. A call
// without targets has no target columns.
struct Batch {
    const double* x;
    const double* y;
    unsigned rows;
    unsigned xcols;
    unsigned ycols;

    std::size_t elements() const { return std::size_t{rows} * ycols; }

    InputRows inputs() const { return {x, rows, xcols}; }

    InputRows targets() const { return {y, rows, ycols}; }
};

}  // namespace VEMKN
