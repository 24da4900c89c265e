#include "fad/products.h"

#include "eval/element_loops.h"

namespace yafad {

using VEMKN::PassingMemory;
using VEMKN::WHOLE;

namespace {

// dC_k = dA_k*B + A*dB_k
void multiply_derivatives(const Bundle& A, const Bundle& B, Bundle& C, By by)
{
    do_mult(A.derivatives, B.value, C.derivatives, by);
    product(A.value,
            B.derivatives.side_by_side(),
            C.derivatives.data(),
            C.derivatives.pitch(),
            Into::add,
            by);
}

// dC_k += (A*0.0)*B in a range of rows, which is zero but where A is not finite. The rows of A follow one another.
//   to : the first row of C
void add_zeros_of(
    const Factor& A, const Factor& B, Bundle& C, By by, const RowRange& range, std::size_t to)
{
    const PassingMemory memory;
    WorkMatrix zero(A.data, A.rows, A.cols);
    for (double& entry : zero.store()) entry *= 0.0;
    const Factor dA = A.transposed ? VEMKN::transposed(zero) : Factor(zero);
    for (std::size_t k = 0; k < C.tangents(); ++k) {
        product(dA.cut_rows(range.first, range.count),
                B,
                C.derivatives.at(k, to),
                C.derivatives.pitch(),
                Into::add,
                by);
    }
}

// Of rows that follow one another.
bool is_finite(const Factor& A)
{
    return VEMKN::kernels().all_finite(A.data, A.rows * A.cols);
}

// The derivatives of constants A. A row that is not finite has no say in the derivatives of others: they may be those of another
// slice, with which it runs together.
void add_constant_tangents(
    const Factor& A, const Factor& B, Bundle& C, By by, const RowRange& range)
{
    if (C.tangents() == 0 || is_finite(A)) return;
    if (A.transposed) return add_zeros_of(A, B, C, by, range, range.first);
    for (std::size_t r = range.first; r < range.first + range.count; ++r) {
        const Factor row = A.cut_rows(r, 1);
        if (!is_finite(row)) add_zeros_of(row, B, C, by, {0, 1}, r);
    }
}

// The value of C = A*B, and dC_k = A*dB_k.
void multiply_by_value(const Factor& A, const BundleView& B, Bundle& C, By by)
{
    do_binmult(C.value, A, B.value, by);
    do_binmult(C.derivatives, A, B.derivatives, by);
}

// Rows first ... of dA_k^T*B, added to the rows of `to`, where derivatives lie side by side. Where all of it is small, a
// call costs more than its product, and one call gives all of it in the order (tangent, row, column).
void add_derivatives_of_left(const BlockRowView& dA,
                             const Factor& B,
                             std::size_t first,
                             std::size_t rows,
                             double* to,
                             std::size_t pitch,
                             By by)
{
    const std::size_t cols = B.cols;
    constexpr std::size_t SMALL = 64;
    const bool small = rows * cols <= SMALL && rows * cols * dA.count() <= VEMKN::STRIP;
    if (small && dA.count() > 1 && rows == dA.cols()) {
        VEMKN::Strip strip;
        product(transposed(Factor(dA.side_by_side())), B, strip.data, Into::overwrite, by);
        const double* from = strip.data;
        for (std::size_t k = 0; k < dA.count(); ++k) {
            for (std::size_t r = 0; r < rows; ++r) {
                for (std::size_t c = 0; c < cols; ++c) to[r * pitch + k * cols + c] += *from++;
            }
        }
        return;
    }
    for (std::size_t k = 0; k < dA.count(); ++k) {
        product(transposed(Factor(dA.factor(k))).cut_rows(first, rows),
                B,
                to + k * cols,
                pitch,
                Into::add,
                by);
    }
}

// dC_k += A*dB_k in a range of rows, formed first as the value is.
void add_derivatives_of_right(BlockRow& dC,
                              const Factor& A,
                              const BlockRowView& dB,
                              WorkMatrix& room,
                              By by,
                              std::size_t part,
                              const RowRange& range)
{
    double* const to = dC.data() + range.first * dC.pitch();
    const Factor of_range = A.cut_rows(range.first, range.count);
    VEMKN::add_product(to, dC.pitch(), of_range, dB.side_by_side(), room.store(), by, part);
}

// dC_k += dA_k^T*B + A^T*dB_k in a range of rows, each formed first.
void add_derivatives(BlockRow& dC,
                     const BundleView& A,
                     const BundleView& B,
                     WorkMatrix& room,
                     By by,
                     const RowRange& range)
{
    const Factor At = transposed(A.value);
    // Of wide layers one derivative after the other: what a panel is formed from then stays in the innermost caches.
    constexpr std::size_t WIDE = 64;
    if (by == By::kernels && dC.cols() >= WIDE) {
        for (std::size_t k = 0; k < dC.count(); ++k) {
            const Factor dAt = transposed(Factor(A.derivatives.factor(k)));
            const auto form = [&](std::size_t first, std::size_t rows, double* to) {
                first += range.first;
                product(At.cut_rows(first, rows), B.derivatives.factor(k), to);
                product(dAt.cut_rows(first, rows), B.value, to, Into::add);
            };
            add_in_panels(dC.at(k, range.first),
                          dC.pitch(),
                          range.count,
                          dC.cols(),
                          VEMKN::rows_of_a_sum(dC.cols()),
                          room.store(),
                          form);
        }
        return;
    }
    const auto form = [&](std::size_t first, std::size_t rows, double* to) {
        first += range.first;
        product(At.cut_rows(first, rows), B.derivatives.side_by_side(), to, Into::overwrite, by);
        add_derivatives_of_left(A.derivatives, B.value, first, rows, to, dC.width(), by);
    };
    add_in_panels(dC, range, room, form);
}

// body(rows) for n rows that are cut into parts.
template <class Body>
void for_each_part(std::size_t n, std::size_t part, const Body& body)
{
    for (std::size_t first = 0; first < n;) {
        const std::size_t rows = std::min(part, n - first);
        body(RowRange{first, rows});
        first += rows;
    }
}

}  // namespace

void transpose(const BundleView& A, Bundle& At)
{
    VEMKN::transpose(A.value, At.value);
    VEMKN::transpose(A.derivatives, At.derivatives);
}

void do_mult(const Bundle& A, const Bundle& B, Bundle& C, By by)
{
    VEMKN::do_mult(A.value, B.value, C.value, by);
    multiply_derivatives(A, B, C, by);
}

void do_mult(const RowsView& A, const Bundle& B, Bundle& C, By by)
{
    do_binmult(C, Factor(A), B, by);
}

void do_binmult(Bundle& C, const Factor& A, const BundleView& B, By by)
{
    multiply_by_value(A, B, C, by);
    add_constant_tangents(A, B.value, C, by, {0, C.rows()});
}

void do_binmult(Bundle& C, const Bundle& A, const TransposedBundle& B, By by)
{
    // The value as doubles have it, to the last bit.
    C.set_shape(A.rows(), B.bundle.value.rows, A.tangents());
    do_binmult(C.value, A.value, transposed(B.bundle.value), by);
    const PassingMemory memory;
    Bundle Bt;
    transpose(B.bundle, Bt);
    multiply_derivatives(A, Bt, C, by);
}

void do_binmult(Bundle& C, const TransposedBundle& A, const BundleView& B, By by)
{
    const Factor At = transposed(A.bundle.value);
    multiply_by_value(At, B, C, by);
    BlockRow& dC = C.derivatives;
    add_derivatives_of_left(A.bundle.derivatives, B.value, 0, C.rows(), dC.data(), dC.pitch(), by);
}

void do_binmult_add(Bundle& C,
                    const TransposedBundle& A,
                    const BundleView& B,
                    WorkMatrix& room,
                    By by,
                    std::size_t part,
                    const RowRange& range)
{
    VEMKN::do_binmult_add(C.value, transposed(A.bundle.value), B.value, room, by, part, range);
    for_each_part(B.value.rows, part, [&](const RowRange& rows) {
        add_derivatives(C.derivatives, rows_of(A.bundle, rows), rows_of(B, rows), room, by, range);
    });
}

void do_binmult_add(Bundle& C,
                    const Factor& A,
                    const BundleView& B,
                    WorkMatrix& room,
                    By by,
                    std::size_t part,
                    const RowRange& range)
{
    VEMKN::do_binmult_add(C.value, A, B.value, room, by, part, range);
    if (is_finite(A)) {
        return add_derivatives_of_right(C.derivatives, A, B.derivatives, room, by, part, range);
    }
    for_each_part(B.value.rows, part, [&](const RowRange& rows) {
        const Factor of_part = A.cut_cols(rows.first, rows.count);
        const BundleView B_of_part = rows_of(B, rows);
        add_derivatives_of_right(
            C.derivatives, of_part, B_of_part.derivatives, room, by, WHOLE, range);
        add_constant_tangents(of_part, B_of_part.value, C, by, range);
    });
}

void do_binplus(Bundle& C, const Bundle& A, const Bundle& b)
{
    if (&C != &A) C = A;
    if (!VEMKN::do_binplus(C.value, C.value, b.value.store())) return;
    BlockRow& dC = C.derivatives;
    if (dC.width() == 0) return;
    if (b.size() == C.size()) {
        for (std::size_t r = 0; r < C.rows(); ++r) {
            for (std::size_t k = 0; k < C.tangents(); ++k) {
                VEMKN::kernels().add(b.derivatives.at(k) + r * C.cols(), dC.at(k, r), C.cols());
            }
        }
    } else {
        VEMKN::kernels().add_to_rows(b.derivatives.data(),
                                     {dC.data(), dC.rows(), dC.width(), dC.pitch()});
    }
}

}  // namespace yafad
