#include <cblas.h>

#include "hand_contestant.h"

namespace compare {

namespace {

// Products by OpenBLAS. Matrices are stored column by column without gaps; C is m x n, k is what is summed over.
struct Blas {
    // C = A B^T or C += A B^T
    static void times_transposed(
        int m, int n, int k, const double* A, const double* B, double* C, bool add)
    {
        if (n == 1) return vector(CblasNoTrans, m, k, A, B, C, add);
        cblas_dgemm(
            CblasColMajor, CblasNoTrans, CblasTrans, m, n, k, 1.0, A, m, B, n, add ? 1.0 : 0.0, C, m);
    }

    // C = A B or C += A B
    static void times(int m, int n, int k, const double* A, const double* B, double* C, bool add)
    {
        if (k == 1) return outer(m, n, A, B, C, add);
        cblas_dgemm(
            CblasColMajor, CblasNoTrans, CblasNoTrans, m, n, k, 1.0, A, m, B, k, add ? 1.0 : 0.0, C, m);
    }

    // C = A^T B or C += A^T B
    static void transposed_times(
        int m, int n, int k, const double* A, const double* B, double* C, bool add)
    {
        if (m == 1) return vector(CblasTrans, k, n, B, A, C, add);
        cblas_dgemm(
            CblasColMajor, CblasTrans, CblasNoTrans, m, n, k, 1.0, A, k, B, k, add ? 1.0 : 0.0, C, m);
    }

private:
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
