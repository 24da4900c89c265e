#include <gtest/gtest.h>

#include "model/blas.h"
#include "support/capture.h"
#include "support/fp_state.h"
#include "support/numbers.h"

using namespace VEMKN;
using Matrix = MatrixTemplate<double>;

namespace {

Matrix random_matrix(Random& random, std::size_t rows, std::size_t cols)
{
    return Matrix(random.list(rows * cols).data(), rows, cols);
}

// m x k as used; stored the other way round when it is to be used transposed.
Matrix random_factor(Random& random, std::size_t m, std::size_t k, bool transpose)
{
    return transpose ? random_matrix(random, k, m) : random_matrix(random, m, k);
}

double element(const Matrix& A, bool transpose, std::size_t r, std::size_t c)
{
    return transpose ? A(c, r) : A(r, c);
}

Factor factor(const Matrix& A, bool transpose)
{
    return transpose ? transposed(A) : Factor(A);
}

constexpr std::size_t SIZES[] = {0, 1, 2, 3, 5, 8, 17, 40};

using Transposes = std::tuple<bool, bool>;

class Product : public testing::TestWithParam<Transposes> {
protected:
    // Calls check(A, B, m, k, n) for every combination of sizes.
    template <class Check>
    void for_all_shapes(const Check& check) const
    {
        const auto [ta, tb] = GetParam();
        Random random(2);
        for (const std::size_t m : SIZES) {
            for (const std::size_t k : SIZES) {
                for (const std::size_t n : SIZES) {
                    SCOPED_TRACE(testing::Message() << m << " x " << k << " x " << n);
                    check(
                        random_factor(random, m, k, ta), random_factor(random, k, n, tb), m, k, n);
                }
            }
        }
    }

    std::vector<long double> plain_product(
        const Matrix& A, const Matrix& B, std::size_t m, std::size_t k, std::size_t n) const
    {
        const auto [ta, tb] = GetParam();
        std::vector<long double> C(m * n);
        for (std::size_t i = 0; i < m; ++i) {
            for (std::size_t j = 0; j < n; ++j) {
                for (std::size_t l = 0; l < k; ++l) {
                    C[i * n + j] +=
                        static_cast<long double>(element(A, ta, i, l)) * element(B, tb, l, j);
                }
            }
        }
        return C;
    }

    // k products and sums of numbers below 1, each rounded once.
    static double tolerance(std::size_t k)
    {
        return static_cast<double>(k + 1) * static_cast<double>(k + 1) * EPS;
    }
};

}  // namespace

TEST_P(Product, EqualsThePlainLoopsWhateverTheResultHeldBefore)
{
    const auto [ta, tb] = GetParam();
    for_all_shapes(
        [&, ta = ta, tb = tb](
            const Matrix& A, const Matrix& B, std::size_t m, std::size_t k, std::size_t n) {
            for (const double leftover : {0.0, 1e300, INF, QUIET_NAN}) {
                Numbers C(m * n, leftover);
                {
                    const TrapsArmed traps;
                    product(factor(A, ta), factor(B, tb), C.data());
                }
                expect_close(C, plain_product(A, B, m, k, n), tolerance(k));
            }
        });
}

TEST_P(Product, AddsToTheResultWhenAsked)
{
    const auto [ta, tb] = GetParam();
    for_all_shapes(
        [&, ta = ta, tb = tb](
            const Matrix& A, const Matrix& B, std::size_t m, std::size_t k, std::size_t n) {
            Numbers C(m * n, 0.75);
            product(factor(A, ta), factor(B, tb), C.data(), Into::add);
            auto truth = plain_product(A, B, m, k, n);
            for (long double& c : truth) c += 0.75L;
            expect_close(C, truth, tolerance(k));
        });
}

TEST_P(Product, WithAnInnerDimensionOfZeroIsZero)
{
    const auto [ta, tb] = GetParam();
    Numbers C(6, QUIET_NAN);
    Random random(3);
    const Matrix A = random_factor(random, 2, 0, ta), B = random_factor(random, 0, 3, tb);
    product(factor(A, ta), factor(B, tb), C.data());
    EXPECT_EQ(bits_of(Numbers(6, 0.0)), bits_of(C));
}

INSTANTIATE_TEST_SUITE_P(Transposes,
                         Product,
                         testing::Combine(testing::Bool(), testing::Bool()),
                         [](const auto& instance) {
                             return std::string(std::get<0>(instance.param) ? "At" : "A") +
                                    (std::get<1>(instance.param) ? "Bt" : "B");
                         });

TEST(DoMult, ResizesItsResult)
{
    const double a[] = {1, 2, 3, 4}, b[] = {5, 6, 7, 8, 9, 10};
    Matrix C(9, 9);
    const Matrix A(a, 2, 2);
    do_mult(A, Matrix(b, 2, 3), C);
    EXPECT_EQ(2u, C.rows());
    EXPECT_EQ(3u, C.cols());
    // Small integers: exact in any order.
    EXPECT_EQ(bits_of(Numbers{21, 24, 27, 47, 54, 61}), bits_of(C.store()));
}

TEST(DoBinmult, MultipliesByATransposedFactor)
{
    const double a[] = {1, 2, 3, 4}, b[] = {5, 6, 7, 8};
    const Matrix A(a, 2, 2), B(b, 2, 2);
    Matrix C;
    do_binmult(C, A, transposed(B));
    EXPECT_EQ(bits_of(Numbers{17, 23, 39, 53}), bits_of(C.store()));
    do_binmult(C, transposed(A), B);
    EXPECT_EQ(bits_of(Numbers{26, 30, 38, 44}), bits_of(C.store()));
}

TEST(DoBinplus, AddsABiasToEveryRow)
{
    const double a[] = {1, 2, 3, 4, 5, 6};
    const Matrix A(a, 2, 3);
    Matrix C;
    do_binplus(C, A, {10, 20, 30});
    EXPECT_EQ(2u, C.rows());
    EXPECT_EQ(3u, C.cols());
    EXPECT_EQ(bits_of(Numbers{11, 22, 33, 14, 25, 36}), bits_of(C.store()));
}

TEST(DoBinplus, AddsElementByElementWhereTheBiasIsAsLongAsTheStore)
{
    const double a[] = {1, 2, 3, 4, 5, 6};
    const Matrix A(a, 2, 3);
    Matrix C;
    do_binplus(C, A, {10, 20, 30, 40, 50, 60});
    EXPECT_EQ(bits_of(Numbers{11, 22, 33, 44, 55, 66}), bits_of(C.store()));
}

TEST(DoBinplus, BothRulesAgreeOnOneRow)
{
    const double a[] = {1, 2, 3};
    Matrix A(a, 1, 3);
    do_binplus(A, A, {10, 20, 30});
    EXPECT_EQ(bits_of(Numbers{11, 22, 33}), bits_of(A.store()));
}

TEST(DoBinplus, TakesTheElementRuleForAColumn)
{
    // One column, as many entries as rows: the element rule, which comes first.
    const double a[] = {1, 2, 3};
    Matrix A(a, 3, 1);
    do_binplus(A, A, {10, 20, 30});
    EXPECT_EQ(bits_of(Numbers{11, 22, 33}), bits_of(A.store()));
}

TEST(DoBinplus, SaysInvalidDimsAndSkipsABiasThatFitsNeitherRule)
{
    const double a[] = {1, 2, 3, 4, 5, 6};
    const Matrix A(a, 2, 3);
    for (const std::size_t length : {0u, 1u, 2u, 4u, 5u, 7u}) {
        Matrix C;
        const Heard heard = listen([&] { do_binplus(C, A, std::valarray<double>(100.0, length)); });
        EXPECT_EQ("invalid dims\n", heard.err) << length;
        EXPECT_EQ("", heard.out);
        EXPECT_EQ(bits_of(a), bits_of(C.store())) << length;
    }
}

TEST(DoBinplus, AcceptsAnEmptyBatch)
{
    Matrix A(0, 3);
    EXPECT_EQ("", listen([&] { do_binplus(A, A, {1, 2, 3}); }).err);
    EXPECT_EQ(0u, A.size());
    EXPECT_EQ(3u, A.cols());
}
