#include "model/blas.h"

#include <cblas.h>

#include <limits>
#include <utility>

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

// y = A*x or y += A*x for A as used; neighbouring elements of x lie `step` apart.
void matrix_times_vector(const Factor& A, const double* x, std::size_t step, double* y, Into into)
{
    // The vector routine scales y by beta, which would turn a leftover infinity into a NaN and a trap.
    if (into == Into::overwrite) std::fill_n(y, A.used_rows(), 0.0);
    cblas_dgemv(CblasRowMajor,
                order(A.transposed),
                dimension(A.rows),
                dimension(A.cols),
                1.0,
                A.data,
                dimension(A.stride),
                x,
                dimension(step),
                into == Into::add ? 1.0 : 0.0,
                y,
                1);
}

// C = A*B or C += A*B where the rows of C lie `stride` apart.
void matrix_times_matrix(const Factor& A, const Factor& B, double* C, std::size_t stride, Into into)
{
    cblas_dgemm(CblasRowMajor,
                order(A.transposed),
                order(B.transposed),
                dimension(A.used_rows()),
                dimension(B.used_cols()),
                dimension(A.used_cols()),
                1.0,
                A.data,
                dimension(A.stride),
                B.data,
                dimension(B.stride),
                into == Into::add ? 1.0 : 0.0,
                C,
                dimension(stride));
}

// In the block that every thread has from its start, as libgomp's own: an access is one instruction, and a library that is
// loaded later needs no storage made for it.
[[gnu::tls_model("initial-exec")]] thread_local bool plain_products = false;

// For dimensions that the 32-bit integers of BLAS cannot express, and for PlainProducts.
void plain_product(const Factor& A, const Factor& B, double* C, Into into)
{
    const std::size_t m = A.used_rows(), k = A.used_cols(), n = B.used_cols();
    if (into == Into::overwrite) std::fill_n(C, m * n, 0.0);
    for (std::size_t i = 0; i < m; ++i) {
        for (std::size_t l = 0; l < k; ++l) {
            const double a = A.transposed ? A.data[l * A.stride + i] : A.data[i * A.stride + l];
            for (std::size_t j = 0; j < n; ++j) {
                C[i * n + j] +=
                    a * (B.transposed ? B.data[j * B.stride + l] : B.data[l * B.stride + j]);
            }
        }
    }
}

}  // namespace

PlainProducts::PlainProducts(bool on) : before_(std::exchange(plain_products, on)) {}

PlainProducts::~PlainProducts()
{
    plain_products = before_;
}

bool PlainProducts::here()
{
    return plain_products;
}

// Up to 10^6 multiplications BLAS has kernels that copy nothing. A product somewhat larger is faster in panels of that
// size, a multiple of 32 long; one that takes more than eight of them is not (docs/performance.md).
std::size_t panel_length(std::size_t whole, std::size_t others)
{
    constexpr std::size_t SMALL_PRODUCT = 1'000'000, STEP = 32, MOST_PANELS = 8;
    if (others == 0) return whole;
    const std::size_t panel = SMALL_PRODUCT / others / STEP * STEP;
    return panel == 0 || panel > whole || MOST_PANELS * panel < whole ? whole : panel;
}

void product(const Factor& A, const Factor& B, double* C, Into into)
{
    const std::size_t m = A.used_rows(), k = A.used_cols(), n = B.used_cols();
    if (m == 0 || n == 0) return;
    if (k == 0) {
        if (into == Into::overwrite) std::fill_n(C, m * n, 0.0);
        return;
    }
    if (plain_products || std::max({m, k, n, A.stride, B.stride}) > MAX_BLAS_DIMENSION) {
        plain_product(A, B, C, into);
    } else if (m == 1) {
        // The row a*B is the column B^T*a.
        Factor Bt = B;
        Bt.transposed = !B.transposed;
        matrix_times_vector(Bt, A.data, A.transposed ? A.stride : 1, C, into);
    } else if (n == 1) {
        matrix_times_vector(A, B.data, B.transposed ? 1 : B.stride, C, into);
    } else if (A.transposed) {
        const std::size_t panel = panel_length(m, n * k);
        for (std::size_t i = 0; i < m; i += panel) {
            const std::size_t rows = std::min(panel, m - i);
            matrix_times_matrix(A.cut_rows(i, rows), B, C + i * n, n, into);
        }
    } else {
        const std::size_t panel = panel_length(n, m * k);
        for (std::size_t j = 0; j < n; j += panel) {
            const std::size_t cols = std::min(panel, n - j);
            matrix_times_matrix(A, B.cut_cols(j, cols), C + j, n, into);
        }
    }
}

}  // namespace VEMKN
