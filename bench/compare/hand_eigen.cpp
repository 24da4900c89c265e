#include <Eigen/Core>

#include "hand_contestant.h"

namespace compare {

namespace {

using Matrix = Eigen::Map<const Eigen::MatrixXd>;
using Result = Eigen::Map<Eigen::MatrixXd>;

template <class Product>
void put(const Product& product, double* C, bool add)
{
    Result out(C, product.rows(), product.cols());
    if (add) {
        out.noalias() += product;
    } else {
        out.noalias() = product;
    }
}

// Products by Eigen. Matrices are stored column by column without gaps; C is m x n, k is what is summed over.
struct WithEigen {
    // C = A B^T or C += A B^T
    static void times_transposed(
        int m, int n, int k, const double* A, const double* B, double* C, bool add)
    {
        put(Matrix(A, m, k) * Matrix(B, n, k).transpose(), C, add);
    }

    // C = A B or C += A B
    static void times(int m, int n, int k, const double* A, const double* B, double* C, bool add)
    {
        put(Matrix(A, m, k) * Matrix(B, k, n), C, add);
    }

    // C = A^T B or C += A^T B
    static void transposed_times(
        int m, int n, int k, const double* A, const double* B, double* C, bool add)
    {
        put(Matrix(A, k, m).transpose() * Matrix(B, k, n), C, add);
    }
};

}  // namespace

std::unique_ptr<Contestant> make_hand_eigen(const Question& question)
{
    return make_hand<WithEigen>(question);
}

}  // namespace compare
