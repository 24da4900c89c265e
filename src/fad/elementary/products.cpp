#include "fad/elementary/products.h"

#include "fad/elementary/bundling.h"
#include "fad/products.h"

namespace yafad {

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
