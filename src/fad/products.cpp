#include "fad/products.h"

#include "eval/element_loops.h"

namespace yafad {

namespace {

// dC_k = dA_k*B
void multiply_derivatives_of_left(const Bundle& A, const Factor& B, Bundle& C)
{
    if (C.directions() == 0) return;
    if (A.is_dense() && C.is_dense()) {
        product(A.stacked(), B, C.derivatives());
        return;
    }
    for (std::size_t k = 0; k < C.directions(); ++k) {
        product(A.factor(k), B, C.derivative(k), C.pitch());
    }
}

// dC_k = dA_k*B + A*dB_k
void multiply_derivatives(const Bundle& A, const Bundle& B, Bundle& C)
{
    multiply_derivatives_of_left(A, B.value, C);
    product(A.value, B.side_by_side(), C.derivatives(), C.pitch(), Into::add);
}

// dC_k += (A*0.0)*B, which is zero but where A is not finite. The rows of A follow one another.
void add_constant_tangents(const Factor& A, const Factor& B, Bundle& C)
{
    if (C.directions() == 0 || VEMKN::kernels().all_finite(A.data, A.rows * A.cols)) return;
    WorkMatrix zero(A.data, A.rows, A.cols);
    for (double& entry : zero.store()) entry *= 0.0;
    const Factor dA = A.transposed ? VEMKN::transposed(zero) : Factor(zero);
    for (std::size_t k = 0; k < C.directions(); ++k) {
        product(dA, B, C.derivative(k), C.pitch(), Into::add);
    }
}

// The value of C = A*B, and dC_k = A*dB_k.
void multiply_by_value(const Factor& A, const Bundle& B, Bundle& C)
{
    C.set_shape(A.used_rows(), B.cols(), B.directions());
    product(A, B.value, C.value.data());
    product(A, B.side_by_side(), C.derivatives(), C.pitch());
}

// Rows first ... of dA_k^T*B, added to the rows of `to`, where derivatives lie side by side. Where all of it is small, a call
// costs more than its product, and one call gives all of it in the order (direction, row, column).
void add_derivatives_of_left(const Bundle& A,
                             const Factor& B,
                             std::size_t first,
                             std::size_t rows,
                             double* to,
                             std::size_t pitch)
{
    const std::size_t cols = B.cols;
    constexpr std::size_t SMALL = 64;
    const bool small = rows * cols <= SMALL && rows * cols * A.directions() <= VEMKN::BLOCK;
    if (small && A.directions() > 1 && rows == A.cols()) {
        VEMKN::Block block;
        product(transposed(A.side_by_side()), B, block.data);
        const double* from = block.data;
        for (std::size_t k = 0; k < A.directions(); ++k) {
            for (std::size_t r = 0; r < rows; ++r) {
                for (std::size_t c = 0; c < cols; ++c) to[r * pitch + k * cols + c] += *from++;
            }
        }
        return;
    }
    for (std::size_t k = 0; k < A.directions(); ++k) {
        product(transposed(A.factor(k)).cut_rows(first, rows), B, to + k * cols, pitch, Into::add);
    }
}

// C += P for a product P of that inner dimension: form(first, rows, to, pitch) writes some rows of the derivatives of P; they
// are formed first and then added, a panel at a time so that it is added from cache.
template <class Form>
void add_derivatives_in_panels(Bundle& C, std::size_t inner, WorkMatrix& room, const Form& form)
{
    constexpr std::size_t PANEL_WORK = 1'000'000, FEW_ROWS = 8;
    const std::size_t wide = C.directions() * C.cols();
    if (C.rows() == 0 || wide == 0) return;
    const std::size_t panel =
        std::max(PANEL_WORK / (wide * std::max<std::size_t>(inner, 1)) / FEW_ROWS, std::size_t{1}) *
        FEW_ROWS;
    set_size(room.store(), std::min(panel, C.rows()) * wide);
    for (std::size_t first = 0; first < C.rows(); first += panel) {
        const std::size_t rows = std::min(panel, C.rows() - first);
        form(first, rows, room.data(), wide);
        add_rows(room.data(), wide, C.derivative(0, first), C.pitch(), rows, wide);
    }
}

}  // namespace

void transpose(const Bundle& A, Bundle& At)
{
    At.set_shape(A.cols(), A.rows(), A.directions());
    VEMKN::transpose(A.value, At.value);
    for (std::size_t r = 0; r < A.rows(); ++r) {
        for (std::size_t k = 0; k < A.directions(); ++k) {
            const double* const from = A.derivative(k, r);
            double* const to = At.derivative(k) + r;
            for (std::size_t c = 0; c < A.cols(); ++c) to[c * At.pitch()] = from[c];
        }
    }
}

void do_mult(const Bundle& A, const Bundle& B, Bundle& C)
{
    C.set_shape(A.rows(), B.cols(), B.directions());
    product(A.value, B.value, C.value.data());
    multiply_derivatives(A, B, C);
}

void do_mult(const RowsView& A, const Bundle& B, Bundle& C)
{
    do_binmult(C, Factor(A), B);
}

void do_binmult(Bundle& C, const Factor& A, const Bundle& B)
{
    multiply_by_value(A, B, C);
    add_constant_tangents(A, B.value, C);
}

void do_binmult(Bundle& C, const Bundle& A, const TransposedBundle& B)
{
    // The value as doubles have it, to the last bit.
    C.set_shape(A.rows(), B.bundle.rows(), B.bundle.directions());
    product(A.value, transposed(B.bundle.value), C.value.data());
    Bundle Bt;
    transpose(B.bundle, Bt);
    multiply_derivatives(A, Bt, C);
}

void do_binmult(Bundle& C, const TransposedBundle& A, const Bundle& B)
{
    const Factor At = transposed(A.bundle.value);
    multiply_by_value(At, B, C);
    add_derivatives_of_left(A.bundle, B.value, 0, C.rows(), C.derivatives(), C.pitch());
}

void do_binmult_add(Bundle& C, const TransposedBundle& A, const Bundle& B, WorkMatrix& room)
{
    const Factor At = transposed(A.bundle.value);
    VEMKN::do_binmult_add(C.value, At, B.value, room);
    const auto form = [&](std::size_t first, std::size_t rows, double* to, std::size_t pitch) {
        product(At.cut_rows(first, rows), B.side_by_side(), to, pitch);
        add_derivatives_of_left(A.bundle, B.value, first, rows, to, pitch);
    };
    add_derivatives_in_panels(C, B.rows(), room, form);
}

void do_binmult_add(Bundle& C, const Factor& A, const Bundle& B, WorkMatrix& room)
{
    VEMKN::do_binmult_add(C.value, A, B.value, room);
    const auto form = [&](std::size_t first, std::size_t rows, double* to, std::size_t pitch) {
        product(A.cut_rows(first, rows), B.side_by_side(), to, pitch);
    };
    add_derivatives_in_panels(C, B.rows(), room, form);
    add_constant_tangents(A, B.value, C);
}

void do_binplus(Bundle& C, const Bundle& A, const Bundle& b)
{
    if (&C != &A) C = A;
    if (!VEMKN::do_binplus(C.value, C.value, b.value.store())) return;
    const std::size_t wide = C.directions() * C.cols();
    if (wide == 0) return;
    if (b.size() == C.size()) {
        for (std::size_t r = 0; r < C.rows(); ++r) {
            for (std::size_t k = 0; k < C.directions(); ++k) {
                const double* const from = b.derivative(k) + r * C.cols();
                VEMKN::kernels().add(from, C.derivative(k, r), C.cols());
            }
        }
    } else {
        VEMKN::kernels().add_to_rows(b.derivatives(), C.derivatives(), C.rows(), wide, C.pitch());
    }
}

namespace {

// C = f of bundles of the carriers.
template <class Carrier, class F>
void through_bundles(Carrier& C, const F& f)
{
    Bundle c;
    f(c);
    unbundle(c, C);
}

}  // namespace

void do_mult(const MatrixCarrier& A, const MatrixCarrier& B, MatrixCarrier& C)
{
    through_bundles(C, [&](Bundle& c) { do_mult(bundle(A), bundle(B), c); });
}

void do_binmult(MatrixCarrier& C,
                const MatrixCarrier& A,
                const TransposedFAD1<MatrixTemplate<double>>& B)
{
    through_bundles(C, [&](Bundle& c) { do_binmult(c, bundle(A), transposed(bundle(B.carrier))); });
}

void do_binmult(MatrixCarrier& C,
                const TransposedFAD1<MatrixTemplate<double>>& A,
                const MatrixCarrier& B)
{
    through_bundles(C, [&](Bundle& c) { do_binmult(c, transposed(bundle(A.carrier)), bundle(B)); });
}

void do_binplus(MatrixCarrier& C, const MatrixCarrier& A, const VectorCarrier& b)
{
    through_bundles(C, [&](Bundle& c) { do_binplus(c, bundle(A), bundle(b)); });
}

}  // namespace yafad
