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

// y = A*x or y += A*x for A as used; neighbouring elements lie `x_step` and `y_step` apart.
void matrix_times_vector(
    const Factor& A, const double* x, std::size_t x_step, double* y, std::size_t y_step, Into into)
{
    // The vector routine scales y by beta, which would turn a leftover infinity into a NaN and a trap.
    for (std::size_t i = 0; into == Into::overwrite && i < A.used_rows(); ++i) y[i * y_step] = 0.0;
    cblas_dgemv(CblasRowMajor,
                order(A.transposed),
                dimension(A.rows),
                dimension(A.cols),
                1.0,
                A.data,
                dimension(A.stride),
                x,
                dimension(x_step),
                into == Into::add ? 1.0 : 0.0,
                y,
                dimension(y_step));
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

// Up to so many multiplications BLAS has kernels that copy nothing, and a larger product is faster in tiles of that size,
// unless they are slivers (docs/performance.md).
constexpr std::size_t SMALL_PRODUCT = 1'000'000;

// In the block that every thread has from its start, as libgomp's own: an access is one instruction, and a library that is
// loaded later needs no storage made for it.
[[gnu::tls_model("initial-exec")]] thread_local bool plain_products = false;

// For dimensions that the 32-bit integers of BLAS cannot express, and for PlainProducts.
void plain_product(const Factor& A, const Factor& B, double* C, std::size_t stride, Into into)
{
    const std::size_t m = A.used_rows(), k = A.used_cols(), n = B.used_cols();
    for (std::size_t i = 0; i < m; ++i) {
        double* const row = C + i * stride;
        if (into == Into::overwrite) std::fill_n(row, n, 0.0);
        for (std::size_t l = 0; l < k; ++l) {
            const double a = A.transposed ? A.data[l * A.stride + i] : A.data[i * A.stride + l];
            for (std::size_t j = 0; j < n; ++j) {
                row[j] += a * (B.transposed ? B.data[j * B.stride + l] : B.data[l * B.stride + j]);
            }
        }
    }
}

struct Tile {
    std::size_t rows, cols;
};

// The most that one dimension of a small product can be where the other two have `others` elements together.
std::size_t longest_panel(std::size_t others)
{
    constexpr std::size_t STEP = 32;
    return SMALL_PRODUCT / others / STEP * STEP;
}

// How much of an m x n product with inner dimension k to form at once: all of it, or a tile that is a small product but
// not a sliver.
Tile tile_of(std::size_t m, std::size_t n, std::size_t k)
{
    constexpr std::size_t FEW_ROWS = 32, SHORTEST = 64;
    if (m * n * k <= SMALL_PRODUCT) return {m, n};
    const std::size_t cols = longest_panel(m * k), rows = longest_panel(n * k);
    if (cols >= SHORTEST) return {m, std::min(cols, n)};
    if (rows >= SHORTEST) return {std::min(rows, m), n};
    const std::size_t cols_of_few = std::min(longest_panel(FEW_ROWS * k), n);
    return m > FEW_ROWS && cols_of_few >= SHORTEST ? Tile{FEW_ROWS, cols_of_few} : Tile{m, n};
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

std::size_t panel_length(std::size_t whole, std::size_t others)
{
    constexpr std::size_t MOST_PANELS = 8;
    if (others == 0) return whole;
    const std::size_t panel = longest_panel(others);
    return panel == 0 || panel > whole || MOST_PANELS * panel < whole ? whole : panel;
}

void product(const Factor& A, const Factor& B, double* C, std::size_t stride, Into into)
{
    const std::size_t m = A.used_rows(), k = A.used_cols(), n = B.used_cols();
    if (m == 0 || n == 0) return;
    if (k == 0) {
        for (std::size_t i = 0; into == Into::overwrite && i < m; ++i) {
            std::fill_n(C + i * stride, n, 0.0);
        }
        return;
    }
    if (plain_products || std::max({m, k, n, A.stride, B.stride, stride}) > MAX_BLAS_DIMENSION) {
        plain_product(A, B, C, stride, into);
    } else if (m == 1) {
        // The row a*B is the column B^T*a.
        matrix_times_vector(transposed(B), A.data, A.transposed ? A.stride : 1, C, 1, into);
    } else if (n == 1) {
        matrix_times_vector(A, B.data, B.transposed ? 1 : B.stride, C, stride, into);
    } else {
        const Tile tile = tile_of(m, n, k);
        for (std::size_t i = 0; i < m; i += tile.rows) {
            const Factor rows = A.cut_rows(i, std::min(tile.rows, m - i));
            for (std::size_t j = 0; j < n; j += tile.cols) {
                const Factor cols = B.cut_cols(j, std::min(tile.cols, n - j));
                matrix_times_matrix(rows, cols, C + i * stride + j, stride, into);
            }
        }
    }
}

}  // namespace VEMKN
