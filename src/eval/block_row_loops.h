#pragma once

#include "eval/element_loops.h"
#include "model/block_row.h"

// Element functions of the elements of one matrix x, for several matrices of its shape side by side: the counterpart of
// the adjoints in eval/element_loops.h.

namespace VEMKN {

// Some elements of a matrix, n from element `at` on, and the same of matrices of its shape side by side: where they begin
// and how they lie.
struct StripOfEach {
    std::size_t at, n, each_at;
    SideBySide shape;
};

inline SideBySide shape_of(const BlockRow& each)
{
    return {each.rows(), each.cols(), each.count(), each.cols(), each.pitch()};
}

// body(strip) for strips of whole rows, or of a part of a row that is longer than a strip.
template <class Body>
void for_each_strip(const BlockRow& each, const Body& body)
{
    const std::size_t rows = each.rows(), cols = each.cols();
    if (each.size() == 0) return;
    const std::size_t width = std::min(cols, STRIP), height = STRIP / width;
    for (std::size_t r = 0; r < rows; r += height) {
        const std::size_t h = width < cols ? 1 : std::min(height, rows - r);
        for (std::size_t c = 0; c < cols; c += width) {
            const std::size_t w = std::min(width, cols - c);
            const std::size_t each_at = each.count() == 0 ? 0 : r * each.pitch() + c;
            SideBySide shape = shape_of(each);
            shape.rows = h;
            shape.cols = w;
            body(StripOfEach{r * cols + c, h * w, each_at, shape});
        }
    }
}

// xbar_k from ybar_k and what the forward pass saved; xbar may be ybar.
template <class F, class Store>
void adj_apply(const DoubleMatrix<Store>& x,
               const DoubleMatrix<Store>& saved,
               const BlockRow& ybar,
               BlockRow& xbar)
{
    take_shape(ybar, xbar);
    element_kernels<F>().vjp_each(
        x.data(), saved_or_x<F>(x, saved), ybar.data(), xbar.data(), shape_of(xbar));
}

// The same with nothing saved.
template <class F, class Store>
void adj_apply_each(const DoubleMatrix<Store>& x, const BlockRow& ybar, BlockRow& xbar)
{
    take_shape(ybar, xbar);
    Strip room;
    for_each_strip(xbar, [&](const StripOfEach& b) {
        const double* const saved = saved_of<F>(x.data() + b.at, room.data, b.n);
        const double* const from = ybar.data() + b.each_at;
        element_kernels<F>().vjp_each(
            x.data() + b.at, saved, from, xbar.data() + b.each_at, b.shape);
    });
}

}  // namespace VEMKN
