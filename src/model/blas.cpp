#include "model/blas.h"

#include <cblas.h>

#include <limits>

#include "api/messages.h"
#include "kernels/kernels.h"

namespace VEMKN {

namespace {

constexpr std::size_t MAX_BLAS_DIMENSION = std::numeric_limits<int>::max();

int dimension(std::size_t n)
{
    return static_cast<int>(n);
}

CBLAS_TRANSPOSE order(bool transposed)
{
    return transposed ? CblasTrans : CblasNoTrans;
}

// y = A*x or y += A*x for A as used.
void matrix_times_vector(const Factor& A, const double* x, double* y, Into into)
{
    // The vector routine scales y by beta, which would turn a leftover infinity into a NaN and a trap.
    if (into == Into::overwrite) std::fill_n(y, A.used_rows(), 0.0);
    cblas_dgemv(CblasRowMajor,
                order(A.transposed),
                dimension(A.rows),
                dimension(A.cols),
                1.0,
                A.data,
                dimension(A.cols),
                x,
                1,
                into == Into::add ? 1.0 : 0.0,
                y,
                1);
}

// For dimensions that the 32-bit integers of BLAS cannot express.
void plain_product(const Factor& A, const Factor& B, double* C, Into into)
{
    const std::size_t m = A.used_rows(), k = A.used_cols(), n = B.used_cols();
    if (into == Into::overwrite) std::fill_n(C, m * n, 0.0);
    for (std::size_t i = 0; i < m; ++i) {
        for (std::size_t l = 0; l < k; ++l) {
            const double a = A.transposed ? A.data[l * A.cols + i] : A.data[i * A.cols + l];
            for (std::size_t j = 0; j < n; ++j) {
                C[i * n + j] += a * (B.transposed ? B.data[j * B.cols + l] : B.data[l * n + j]);
            }
        }
    }
}

}  // namespace

void product(const Factor& A, const Factor& B, double* C, Into into)
{
    const std::size_t m = A.used_rows(), k = A.used_cols(), n = B.used_cols();
    if (m == 0 || n == 0) return;
    if (k == 0) {
        if (into == Into::overwrite) std::fill_n(C, m * n, 0.0);
        return;
    }
    if (std::max({m, k, n}) > MAX_BLAS_DIMENSION) {
        plain_product(A, B, C, into);
    } else if (m == 1) {
        // The row a*B is the column B^T*a.
        Factor Bt = B;
        Bt.transposed = !B.transposed;
        matrix_times_vector(Bt, A.data, C, into);
    } else if (n == 1) {
        matrix_times_vector(A, B.data, C, into);
    } else {
        cblas_dgemm(CblasRowMajor,
                    order(A.transposed),
                    order(B.transposed),
                    dimension(m),
                    dimension(n),
                    dimension(k),
                    1.0,
                    A.data,
                    dimension(A.cols),
                    B.data,
                    dimension(B.cols),
                    into == Into::add ? 1.0 : 0.0,
                    C,
                    dimension(n));
    }
}

bool do_binplus(MatrixTemplate<double>& C,
                const MatrixTemplate<double>& A,
                const std::valarray<double>& b)
{
    if (&C != &A) C = A;
    if (b.size() == C.size()) {
        kernels().add(std::begin(b), C.data(), C.size());
    } else if (b.size() == C.cols()) {
        kernels().add_to_rows(std::begin(b), C.data(), C.rows(), C.cols());
    } else {
        write_error("invalid dims\n");
        return false;
    }
    return true;
}

}  // namespace VEMKN
