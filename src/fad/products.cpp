#include "fad/products.h"

namespace yafad {

using VEMKN::Factor;
using VEMKN::Into;
using VEMKN::product;

namespace {

// A carrier as a factor: its value and its derivatives, all used transposed or all as they stand.
struct CarrierFactor {
    const MatrixCarrier& carrier;
    bool is_transposed;

    Factor value() const { return part(carrier.value); }

    Factor derivative(std::size_t k) const { return part(carrier.derivatives[k]); }

private:
    Factor part(const MatrixTemplate<double>& m) const
    {
        Factor f(m);
        f.transposed = is_transposed;
        return f;
    }
};

void shape_product(const Factor& A, const Factor& B, std::size_t directions, MatrixCarrier& C)
{
    C.set_directions(directions);
    C.value.resize(A.used_rows(), B.used_cols());
    for (auto& derivative : C.derivatives) derivative.resize(A.used_rows(), B.used_cols());
}

void multiply(const CarrierFactor& A, const CarrierFactor& B, MatrixCarrier& C)
{
    shape_product(A.value(), B.value(), A.carrier.directions(), C);
    product(A.value(), B.value(), C.value.data());
    for (std::size_t k = 0; k < C.directions(); ++k) {
        double* const dC = C.derivatives[k].data();
        product(A.derivative(k), B.value(), dC);
        product(A.value(), B.derivative(k), dC, Into::add);
    }
}

// dC_k += (A*0.0)*B, which is zero but where A is not finite.
void add_constant_tangents(const Factor& A, const Factor& B, MatrixCarrier& C)
{
    if (C.directions() == 0 || VEMKN::kernels().all_finite(A.data, A.rows * A.cols)) return;
    MatrixTemplate<double> zero(A.data, A.rows, A.cols);
    zero.store() *= 0.0;
    Factor dA(zero);
    dA.transposed = A.transposed;
    for (auto& derivative : C.derivatives) product(dA, B, derivative.data(), Into::add);
}

void multiply(const Factor& A, const CarrierFactor& B, MatrixCarrier& C)
{
    shape_product(A, B.value(), B.carrier.directions(), C);
    product(A, B.value(), C.value.data());
    for (std::size_t k = 0; k < C.directions(); ++k) {
        product(A, B.derivative(k), C.derivatives[k].data());
    }
    add_constant_tangents(A, B.value(), C);
}

// C += A*B
void multiply_add(const CarrierFactor& A,
                  const CarrierFactor& B,
                  MatrixCarrier& C,
                  MatrixTemplate<double>& room)
{
    const Factor a = A.value(), b = B.value();
    do_binmult_add(C.value, a, b, room);
    for (std::size_t k = 0; k < C.directions(); ++k) {
        const Factor da = A.derivative(k), db = B.derivative(k);
        const auto form = [&](std::size_t first, std::size_t rows, double* to) {
            product(da.cut_rows(first, rows), b, to);
            product(a.cut_rows(first, rows), db, to, Into::add);
        };
        add_in_panels(C.derivatives[k], a.used_cols(), room, form);
    }
}

void multiply_add(const Factor& A,
                  const CarrierFactor& B,
                  MatrixCarrier& C,
                  MatrixTemplate<double>& room)
{
    do_binmult_add(C.value, A, B.value(), room);
    for (std::size_t k = 0; k < C.directions(); ++k) {
        do_binmult_add(C.derivatives[k], A, B.derivative(k), room);
    }
    add_constant_tangents(A, B.value(), C);
}

}  // namespace

void do_mult(const MatrixCarrier& A, const MatrixCarrier& B, MatrixCarrier& C)
{
    multiply(CarrierFactor{A, false}, CarrierFactor{B, false}, C);
}

void do_mult(const RowsView& A, const MatrixCarrier& B, MatrixCarrier& C)
{
    multiply(Factor(A), CarrierFactor{B, false}, C);
}

void do_binmult(MatrixCarrier& C,
                const MatrixCarrier& A,
                const TransposedFAD1<MatrixTemplate<double>>& B)
{
    multiply(CarrierFactor{A, false}, CarrierFactor{B.carrier, true}, C);
}

void do_binmult(MatrixCarrier& C,
                const TransposedFAD1<MatrixTemplate<double>>& A,
                const MatrixCarrier& B)
{
    multiply(CarrierFactor{A.carrier, true}, CarrierFactor{B, false}, C);
}

void do_binmult(MatrixCarrier& C, const Factor& A, const MatrixCarrier& B)
{
    multiply(A, CarrierFactor{B, false}, C);
}

void do_binmult_add(MatrixCarrier& C,
                    const TransposedFAD1<MatrixTemplate<double>>& A,
                    const MatrixCarrier& B,
                    MatrixTemplate<double>& room)
{
    multiply_add(CarrierFactor{A.carrier, true}, CarrierFactor{B, false}, C, room);
}

void do_binmult_add(MatrixCarrier& C,
                    const Factor& A,
                    const MatrixCarrier& B,
                    MatrixTemplate<double>& room)
{
    multiply_add(A, CarrierFactor{B, false}, C, room);
}

void do_binplus(MatrixCarrier& C, const MatrixCarrier& A, const VectorCarrier& b)
{
    if (&C != &A) C = A;
    if (!VEMKN::do_binplus(C.value, C.value, b.value)) return;
    for (std::size_t k = 0; k < C.directions(); ++k) {
        VEMKN::do_binplus(C.derivatives[k], C.derivatives[k], b.derivatives[k]);
    }
}

}  // namespace yafad
