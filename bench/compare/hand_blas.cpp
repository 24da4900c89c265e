#include <cblas.h>

#include <algorithm>

#include "hand_contestant.h"

namespace compare {

namespace {

// Up to this many multiplications OpenBLAS has kernels that copy nothing, and they are the faster ones.
constexpr double SMALL_PRODUCT = 1e6;

// Columns of C to compute at a time, so that each product is small; all of them where that would leave slivers.
int columns_at_a_time(int m, int n, int k)
{
    for (int columns : {128, 64, 32}) {
        if (static_cast<double>(m) * k * columns <= SMALL_PRODUCT) return std::min(columns, n);
    }
    return n;
}

// Products by OpenBLAS. Matrices are stored column by column without gaps; C is m x n, k is what is summed over.
struct Blas {
    // C = A B^T or C += A B^T
    static void times_transposed(
        int m, int n, int k, const double* A, const double* B, double* C, bool add)
    {
        if (n == 1) return vector(CblasNoTrans, m, k, A, B, C, add);
        product(CblasNoTrans, CblasTrans, m, n, k, columns_at_a_time(m, n, k), A, B, C, add);
    }

    // C = A B or C += A B
    static void times(int m, int n, int k, const double* A, const double* B, double* C, bool add)
    {
        if (k == 1) return outer(m, n, A, B, C, add);
        product(CblasNoTrans, CblasNoTrans, m, n, k, columns_at_a_time(m, n, k), A, B, C, add);
    }

    // C = A^T B or C += A^T B. The small kernel for this one is no faster.
    static void transposed_times(
        int m, int n, int k, const double* A, const double* B, double* C, bool add)
    {
        if (m == 1) return vector(CblasTrans, k, n, B, A, C, add);
        product(CblasTrans, CblasNoTrans, m, n, k, n, A, B, C, add);
    }

private:
    static void product(CBLAS_TRANSPOSE of_A,
                        CBLAS_TRANSPOSE of_B,
                        int m,
                        int n,
                        int k,
                        int columns,
                        const double* A,
                        const double* B,
                        double* C,
                        bool add)
    {
        const int lda = of_A == CblasNoTrans ? m : k, ldb = of_B == CblasNoTrans ? k : n;
        const std::size_t step = of_B == CblasNoTrans ? static_cast<std::size_t>(k) : 1;
        for (int j = 0; j < n; j += columns) {
            cblas_dgemm(CblasColMajor,
                        of_A,
                        of_B,
                        m,
                        std::min(columns, n - j),
                        k,
                        1.0,
                        A,
                        lda,
                        B + j * step,
                        ldb,
                        add ? 1.0 : 0.0,
                        C + static_cast<std::size_t>(j) * m,
                        m);
        }
    }

    static void vector(CBLAS_TRANSPOSE order,
                       int rows,
                       int cols,
                       const double* A,
                       const double* x,
                       double* y,
                       bool add)
    {
        cblas_dgemv(CblasColMajor, order, rows, cols, 1.0, A, rows, x, 1, add ? 1.0 : 0.0, y, 1);
    }

    // Bound by memory: a loop does as well as a product, and does not read what it overwrites.
    static void outer(int m, int n, const double* a, const double* b, double* C, bool add)
    {
        for (int j = 0; j < n; ++j) {
            double* __restrict column = C + static_cast<std::size_t>(j) * m;
            if (add) {
                for (int i = 0; i < m; ++i) column[i] += a[i] * b[j];
            } else {
                for (int i = 0; i < m; ++i) column[i] = a[i] * b[j];
            }
        }
    }
};

}  // namespace

std::unique_ptr<Contestant> make_hand_blas(const Question& question)
{
    return make_hand<Blas>(question);
}

}  // namespace compare
