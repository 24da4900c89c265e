#pragma once

#include "eval/element_loops.h"
#include "fad/fad1.h"
#include "model/blas.h"

// Products of carriers. The value is the double product; the derivative along direction k is
//
//     d(A*B) = dA*B + A*dB.
//
// A factor that is a constant (rows of a batch) has no tangents, and the product with them is not formed.

namespace yafad {

using VEMKN::Factor;
using VEMKN::Into;
using VEMKN::product;

// Asks a product to use a carrier transposed.
template <class T>
struct TransposedFAD1 {
    const fad1<T>& carrier;
};

template <class Store>
TransposedFAD1<DoubleMatrix<Store>> transposed(const CarrierMatrix<Store>& A)
{
    return {A};
}

// A carrier as a factor: its value and its derivatives, all used transposed or all as they stand.
template <class Store>
class CarrierFactor {
public:
    CarrierFactor(const CarrierMatrix<Store>& carrier) : carrier_(carrier), transposed_(false) {}

    CarrierFactor(const TransposedFAD1<DoubleMatrix<Store>>& marked)
        : carrier_(marked.carrier), transposed_(true)
    {
    }

    std::size_t directions() const { return carrier_.directions(); }

    Factor value() const { return part(carrier_.value); }

    Factor derivative(std::size_t k) const { return part(carrier_.derivatives[k]); }

private:
    Factor part(const DoubleMatrix<Store>& m) const
    {
        return transposed_ ? VEMKN::transposed(m) : Factor(m);
    }

    const CarrierMatrix<Store>& carrier_;
    bool transposed_;
};

template <class Store>
void shape_product(const Factor& A,
                   const Factor& B,
                   std::size_t directions,
                   CarrierMatrix<Store>& C)
{
    C.set_directions(directions);
    C.value.resize(A.used_rows(), B.used_cols());
    for (auto& derivative : C.derivatives) derivative.resize(A.used_rows(), B.used_cols());
}

// to(k) = A*dB_k, or to(k) += A*dB_k, for every direction k.
//
// Derivatives that are single columns are stacked, as many as fit a block, and multiplied as the rows of one matrix: one by
// one, each would be a product of a matrix and a vector and read all of A.
template <class Store, class To>
void multiply_derivatives(const Factor& A, const CarrierFactor<Store>& B, const To& to, Into into)
{
    const std::size_t rows = A.used_rows(), inner = A.used_cols();
    const bool columns = B.value().used_cols() == 1;
    const std::size_t at_once =
        columns ? std::max<std::size_t>(VEMKN::BLOCK / std::max<std::size_t>({rows, inner, 1}), 1)
                : 1;
    VEMKN::Block stack, products;
    Factor At = A;
    At.transposed = !A.transposed;
    for (std::size_t first = 0; first < B.directions(); first += at_once) {
        const std::size_t n = std::min(at_once, B.directions() - first);
        if (n == 1) {
            product(A, B.derivative(first), to(first), into);
            continue;
        }
        for (std::size_t k = 0; k < n; ++k) {
            std::copy_n(B.derivative(first + k).data, inner, stack.data + k * inner);
        }
        product(RowsView(stack.data, n, inner), At, products.data);
        for (std::size_t k = 0; k < n; ++k) {
            const double* const column = products.data + k * rows;
            if (into == Into::add) {
                VEMKN::kernels().add(column, to(first + k), rows);
            } else {
                std::copy_n(column, rows, to(first + k));
            }
        }
    }
}

// C = A*B
template <class Store>
void multiply(const CarrierFactor<Store>& A, const CarrierFactor<Store>& B, CarrierMatrix<Store>& C)
{
    shape_product(A.value(), B.value(), A.directions(), C);
    product(A.value(), B.value(), C.value.data());
    const auto dC = [&](std::size_t k) { return C.derivatives[k].data(); };
    for (std::size_t k = 0; k < C.directions(); ++k) product(A.derivative(k), B.value(), dC(k));
    multiply_derivatives(A.value(), B, dC, Into::add);
}

// dC_k += (A*0.0)*B, which is zero but where A is not finite.
template <class Store>
void add_constant_tangents(const Factor& A, const Factor& B, CarrierMatrix<Store>& C)
{
    if (C.directions() == 0 || VEMKN::kernels().all_finite(A.data, A.rows * A.cols)) return;
    const CarrierMatrix<Store> constant(DoubleMatrix<Store>(A.data, A.rows, A.cols), 1);
    Factor dA(constant.derivatives[0]);
    dA.transposed = A.transposed;
    for (auto& derivative : C.derivatives) product(dA, B, derivative.data(), Into::add);
}

// C = A*B for constants A. Deliberate: the derivatives of a constant are the constant times 0.0, so an infinite or NaN
// entry of A gives NaN derivatives.
template <class Store>
void multiply(const Factor& A, const CarrierFactor<Store>& B, CarrierMatrix<Store>& C)
{
    shape_product(A, B.value(), B.directions(), C);
    product(A, B.value(), C.value.data());
    const auto dC = [&](std::size_t k) { return C.derivatives[k].data(); };
    multiply_derivatives(A, B, dC, Into::overwrite);
    add_constant_tangents(A, B.value(), C);
}

// C = A*B
template <class Store>
void do_mult(const CarrierMatrix<Store>& A, const CarrierMatrix<Store>& B, CarrierMatrix<Store>& C)
{
    multiply<Store>(A, B, C);
}

template <class Store>
void do_mult(const RowsView& A, const CarrierMatrix<Store>& B, CarrierMatrix<Store>& C)
{
    multiply<Store>(Factor(A), B, C);
}

// C = A*B^T
template <class Store>
void do_binmult(CarrierMatrix<Store>& C,
                const CarrierMatrix<Store>& A,
                const TransposedFAD1<DoubleMatrix<Store>>& B)
{
    multiply<Store>(A, B, C);
}

// C = A^T*B
template <class Store>
void do_binmult(CarrierMatrix<Store>& C,
                const TransposedFAD1<DoubleMatrix<Store>>& A,
                const CarrierMatrix<Store>& B)
{
    multiply<Store>(A, B, C);
}

// C = A*B for a constant factor A, transposed or not.
template <class Store>
void do_binmult(CarrierMatrix<Store>& C, const Factor& A, const CarrierMatrix<Store>& B)
{
    multiply<Store>(A, B, C);
}

// C += A^T*B, value and derivatives each formed first and then added; room as for doubles.
template <class Store>
void do_binmult_add(CarrierMatrix<Store>& C,
                    const TransposedFAD1<DoubleMatrix<Store>>& A,
                    const CarrierMatrix<Store>& B,
                    DoubleMatrix<Store>& room)
{
    const CarrierFactor<Store> left(A), right(B);
    const Factor a = left.value(), b = right.value();
    do_binmult_add(C.value, a, b, room);
    if (b.used_cols() == 1) {
        room.resize(C.directions(), C.rows());
        const auto row = [&](std::size_t k) { return room.data() + k * C.rows(); };
        for (std::size_t k = 0; k < C.directions(); ++k) product(left.derivative(k), b, row(k));
        multiply_derivatives(a, right, row, Into::add);
        for (std::size_t k = 0; k < C.directions(); ++k) {
            VEMKN::kernels().add(row(k), C.derivatives[k].data(), C.rows());
        }
        return;
    }
    for (std::size_t k = 0; k < C.directions(); ++k) {
        const Factor da = left.derivative(k), db = right.derivative(k);
        const auto form = [&](std::size_t first, std::size_t rows, double* to) {
            product(da.cut_rows(first, rows), b, to);
            product(a.cut_rows(first, rows), db, to, Into::add);
        };
        add_in_panels(C.derivatives[k], a.used_cols(), room, form);
    }
}

// The same for a constant factor A.
template <class Store>
void do_binmult_add(CarrierMatrix<Store>& C,
                    const Factor& A,
                    const CarrierMatrix<Store>& B,
                    DoubleMatrix<Store>& room)
{
    do_binmult_add(C.value, A, Factor(B.value), room);
    for (std::size_t k = 0; k < C.directions(); ++k) {
        do_binmult_add(C.derivatives[k], A, Factor(B.derivatives[k]), room);
    }
    add_constant_tangents(A, Factor(B.value), C);
}

// C = A + b by the rule of the double twin, on the value and on every derivative. C may be A.
template <class Store>
void do_binplus(CarrierMatrix<Store>& C,
                const CarrierMatrix<Store>& A,
                const CarrierVector<Store>& b)
{
    if (&C != &A) C = A;
    if (!VEMKN::do_binplus(C.value, C.value, b.value)) return;
    for (std::size_t k = 0; k < C.directions(); ++k) {
        VEMKN::do_binplus(C.derivatives[k], C.derivatives[k], b.derivatives[k]);
    }
}

}  // namespace yafad
