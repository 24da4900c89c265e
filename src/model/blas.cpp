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

// C = A*B or C += A*B where the rows of C lie `pitch` apart.
void matrix_times_matrix(const Factor& A, const Factor& B, double* C, std::size_t pitch, Into into)
{
    cblas_dgemm(CblasRowMajor,
                order(A.transposed),
                order(B.transposed),
                dimension(A.used_rows()),
                dimension(B.used_cols()),
                dimension(A.used_cols()),
                1.0,
                A.data,
                dimension(A.pitch),
                B.data,
                dimension(B.pitch),
                into == Into::overwrite ? 0.0 : 1.0,
                C,
                dimension(pitch));
}

// Up to so many multiplications BLAS has kernels that copy nothing, and a larger product is faster in tiles of that size,
// unless they are slivers (docs/performance.md).
constexpr std::size_t SMALL_PRODUCT = 1'000'000;

// In the block that every thread has from its start, as libgomp's own: an access is one instruction, and a library that is
// loaded later needs no storage made for it.
[[gnu::tls_model("initial-exec")]] thread_local bool without_blas = false;

void by_kernels(
    const Factor& A, const Factor& B, double* C, std::size_t pitch, Into into, std::size_t part)
{
    const auto row_step = [](const Factor& f) { return f.transposed ? std::size_t{1} : f.pitch; };
    const auto column_step = [](const Factor& f) {
        return f.transposed ? f.pitch : std::size_t{1};
    };
    kernels().product({A.data,
                       row_step(A),
                       column_step(A),
                       B.data,
                       row_step(B),
                       column_step(B),
                       C,
                       pitch,
                       1,
                       A.used_rows(),
                       B.used_cols(),
                       A.used_cols(),
                       into,
                       std::min(part, A.used_cols())});
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

WithoutBlas::WithoutBlas(bool on) : before_(std::exchange(without_blas, on)) {}

WithoutBlas::~WithoutBlas()
{
    without_blas = before_;
}

bool WithoutBlas::here()
{
    return without_blas;
}

void product(const Factor& A,
             const Factor& B,
             double* C,
             std::size_t pitch,
             Into into,
             By by,
             std::size_t part)
{
    const std::size_t m = A.used_rows(), k = A.used_cols(), n = B.used_cols();
    if (m == 0 || n == 0) return;
    if (k == 0) {
        for (std::size_t i = 0; into == Into::overwrite && i < m; ++i) {
            std::fill_n(C + i * pitch, n, 0.0);
        }
        return;
    }
    // For a vector BLAS takes longer to begin than the product does.
    const bool has_vector = std::min({m, k, n}) == 1;
    const bool fits_blas = std::max({m, k, n, A.pitch, B.pitch, pitch}) <= MAX_BLAS_DIMENSION;
    if (by == By::kernels || has_vector || without_blas || !fits_blas) {
        return by_kernels(A, B, C, pitch, into, part);
    }
    const Tile tile = tile_of(m, n, k);
    for (std::size_t i = 0; i < m; i += tile.rows) {
        const Factor rows = A.cut_rows(i, std::min(tile.rows, m - i));
        for (std::size_t j = 0; j < n; j += tile.cols) {
            const Factor cols = B.cut_cols(j, std::min(tile.cols, n - j));
            matrix_times_matrix(rows, cols, C + i * pitch + j, pitch, into);
        }
    }
}

}  // namespace VEMKN
