#include <cfenv>

#include "fad/carriers.h"
#include "support/capture.h"

using VEMKN::Factor;
using VEMKN::RowsView;
using yafad::do_binmult;
using yafad::do_binplus;
using yafad::do_mult;
using yafad::transposed;

namespace {

constexpr std::size_t SIZES[] = {0, 1, 2, 5, 17};

std::vector<long double> plain_product(const Matrix& A, bool ta, const Matrix& B, bool tb)
{
    const std::size_t m = ta ? A.cols() : A.rows();
    const std::size_t inner = ta ? A.rows() : A.cols();
    const std::size_t n = tb ? B.rows() : B.cols();
    std::vector<long double> C(m * n);
    for (std::size_t i = 0; i < m; ++i) {
        for (std::size_t j = 0; j < n; ++j) {
            for (std::size_t l = 0; l < inner; ++l) {
                C[i * n + j] +=
                    static_cast<long double>(ta ? A(l, i) : A(i, l)) * (tb ? B(j, l) : B(l, j));
            }
        }
    }
    return C;
}

// Sums of up to 2*inner products of numbers below 1, each rounded once.
double tolerance(std::size_t inner)
{
    const auto terms = static_cast<double>(2 * inner + 1);
    return terms * terms * EPS;
}

// C against A*B and dA*B + A*dB.
void expect_product(
    const MatrixCarrier& C, const MatrixCarrier& A, bool ta, const MatrixCarrier& B, bool tb)
{
    const std::size_t inner = ta ? A.rows() : A.cols();
    expect_shape(C, ta ? A.cols() : A.rows(), tb ? B.rows() : B.cols());
    expect_close(C.value.store(), plain_product(A.value, ta, B.value, tb), tolerance(inner));
    ASSERT_EQ(A.tangents(), C.tangents());
    for (std::size_t k = 0; k < A.tangents(); ++k) {
        auto truth = plain_product(A.derivatives[k], ta, B.value, tb);
        const auto second = plain_product(A.value, ta, B.derivatives[k], tb);
        for (std::size_t i = 0; i < truth.size(); ++i) truth[i] += second[i];
        expect_close(C.derivatives[k].store(), truth, tolerance(inner), "derivative");
    }
}

// Calls check(random, m, inner, n, tangents) for every combination of sizes.
template <class Check>
void for_all_shapes(const Check& check)
{
    Random random(1);
    for (const std::size_t m : SIZES) {
        for (const std::size_t inner : SIZES) {
            for (const std::size_t n : SIZES) {
                for (const std::size_t tangents : TANGENTS) {
                    SCOPED_TRACE(testing::Message() << m << " x " << inner << " x " << n << ", "
                                                    << tangents << " tangents");
                    check(random, m, inner, n, tangents);
                }
            }
        }
    }
}

// What only bundles do, on carriers.

void do_mult(const RowsView& A, const MatrixCarrier& B, MatrixCarrier& C)
{
    yafad::Bundle c;
    do_mult(A, yafad::bundle(B), c);
    yafad::unbundle(c, C);
}

void do_binmult(MatrixCarrier& C, const Factor& A, const MatrixCarrier& B)
{
    yafad::Bundle c;
    do_binmult(c, A, yafad::bundle(B));
    yafad::unbundle(c, C);
}

// A carrier whose tangents are all zero.
MatrixCarrier constant(const Matrix& A, std::size_t tangents)
{
    MatrixCarrier c(A, tangents);
    for (Matrix& derivative : c.derivatives) derivative.store() = 0.0;
    return c;
}

}  // namespace

TEST(CarrierDoMult, FollowsTheProductRule)
{
    for_all_shapes(
        [](Random& random, std::size_t m, std::size_t inner, std::size_t n, std::size_t N) {
            const MatrixCarrier A = random_matrix_carrier(random, m, inner, N);
            const MatrixCarrier B = random_matrix_carrier(random, inner, n, N);
            MatrixCarrier C = leftover(m, n);
            do_mult(A, B, C);
            expect_product(C, A, false, B, false);
        });
}

TEST(CarrierDoMult, ResizesItsResult)
{
    Random random(2);
    const MatrixCarrier A = random_matrix_carrier(random, 3, 2, 1);
    const MatrixCarrier B = random_matrix_carrier(random, 2, 4, 1);
    MatrixCarrier C = leftover(7, 5);
    do_mult(A, B, C);
    expect_product(C, A, false, B, false);
}

TEST(CarrierDoMult, HasTheValueOfTheDoubleProductToTheBit)
{
    Random random(3);
    for (const std::size_t m : SIZES) {
        for (const std::size_t n : SIZES) {
            const MatrixCarrier A = random_matrix_carrier(random, m, 9, 3);
            const MatrixCarrier B = random_matrix_carrier(random, 9, n, 3);
            MatrixCarrier C;
            do_mult(A, B, C);
            Matrix twin;
            VEMKN::do_mult(A.value, B.value, twin);
            EXPECT_EQ(bits_of(twin.store()), bits_of(C.value.store())) << m << ", " << n;
        }
    }
}

TEST(CarrierDoMult, LetsNonFiniteEntriesThrough)
{
    MatrixCarrier A = constant(Matrix(2, 2), 1), B = constant(Matrix(2, 1), 1);
    A.value.store() = {INF, 1, 1, 1};
    A.derivatives[0].store() = {0, 0, 1, 0};
    B.value.store() = {2, 3};
    B.derivatives[0].store() = {1, -1};
    MatrixCarrier C;
    do_mult(A, B, C);
    expect_same(C.value.store(), Numbers{INF, 5}, "value");
    expect_same(C.derivatives[0].store(), Numbers{INF, 2}, "derivative");

    // 0 * inf and inf - inf
    B.derivatives[0].store() = {0, 1};
    do_mult(A, B, C);
    expect_same(C.derivatives[0].store(), Numbers{QUIET_NAN, 3}, "derivative");
    A.derivatives[0].store() = {-INF, 0, QUIET_NAN, 0};
    B.derivatives[0].store() = {1, 1};
    do_mult(A, B, C);
    expect_same(C.derivatives[0].store(), Numbers{QUIET_NAN, QUIET_NAN}, "derivative");
}

TEST(CarrierDoMult, OfConstantRowsHasNoTangentsOfTheRows)
{
    for_all_shapes(
        [](Random& random, std::size_t m, std::size_t inner, std::size_t n, std::size_t N) {
            const Matrix A = random_matrix(random, m, inner);
            const MatrixCarrier B = random_matrix_carrier(random, inner, n, N);
            MatrixCarrier C = leftover(m, n);
            do_mult(RowsView(A), B, C);
            expect_product(C, constant(A, N), false, B, false);
        });
}

TEST(CarrierDoMult, OfNonFiniteConstantRowsHasNanTangentsInThoseRows)
{
    for (const double entry : {INF, -INF, QUIET_NAN}) {
        Random random(4);
        Matrix A = random_matrix(random, 3, 4);
        const Matrix finite = A;
        A(1, 2) = entry;
        const MatrixCarrier B = random_matrix_carrier(random, 4, 2, 3);
        MatrixCarrier C, truth;
        do_mult(RowsView(A), B, C);
        do_mult(RowsView(finite), B, truth);
        for (std::size_t k = 0; k < 3; ++k) {
            for (std::size_t c = 0; c < 2; ++c) {
                EXPECT_TRUE(std::isnan(C.derivatives[k](1, c)));
                for (const std::size_t r : {0u, 2u}) {
                    EXPECT_NEAR(truth.derivatives[k](r, c), C.derivatives[k](r, c), tolerance(4));
                }
            }
        }
    }
}

TEST(CarrierDoMult, OfNonFiniteConstantRowsHasNanTangentsWhereTheOtherTermIsInfinite)
{
    // A*dB alone would be infinite; the tangent of the constant, inf * 0.0, makes it NaN.
    Matrix A(1, 1);
    A.store() = INF;
    MatrixCarrier B = constant(Matrix(1, 1), 2);
    B.value.store() = 1.0;
    for (Matrix& derivative : B.derivatives) derivative.store() = 1.0;
    MatrixCarrier C;
    do_mult(RowsView(A), B, C);
    expect_same(C.value.store(), Numbers{INF}, "value");
    for (const Matrix& derivative : C.derivatives) {
        expect_same(derivative.store(), Numbers{QUIET_NAN}, "derivative");
    }
}

TEST(CarrierDoMult, OfNonFiniteConstantRowsFormsNoTangentWithoutTangents)
{
    // inf * 0.0 would be an invalid operation, for nothing.
    Matrix A(1, 1);
    A.store() = INF;
    MatrixCarrier B(Matrix(1, 1), 0), C;
    B.value.store() = 1.0;
    std::feclearexcept(FE_ALL_EXCEPT);
    do_mult(RowsView(A), B, C);
    EXPECT_EQ(0, std::fetestexcept(FE_INVALID));
    expect_same(C.value.store(), Numbers{INF}, "value");
}

TEST(CarrierDoBinmult, MultipliesByATransposedRightFactor)
{
    for_all_shapes(
        [](Random& random, std::size_t m, std::size_t inner, std::size_t n, std::size_t N) {
            const MatrixCarrier A = random_matrix_carrier(random, m, inner, N);
            const MatrixCarrier B = random_matrix_carrier(random, n, inner, N);
            MatrixCarrier C = leftover(m, n);
            do_binmult(C, A, transposed(B));
            expect_product(C, A, false, B, true);
        });
}

TEST(CarrierDoBinmult, MultipliesByATransposedLeftFactor)
{
    for_all_shapes(
        [](Random& random, std::size_t m, std::size_t inner, std::size_t n, std::size_t N) {
            const MatrixCarrier A = random_matrix_carrier(random, inner, m, N);
            const MatrixCarrier B = random_matrix_carrier(random, inner, n, N);
            MatrixCarrier C = leftover(m, n);
            do_binmult(C, transposed(A), B);
            expect_product(C, A, true, B, false);
        });
}

TEST(CarrierDoBinmult, MultipliesConstantsTransposedOrNot)
{
    for_all_shapes(
        [](Random& random, std::size_t m, std::size_t inner, std::size_t n, std::size_t N) {
            const MatrixCarrier B = random_matrix_carrier(random, inner, n, N);
            const Matrix A = random_matrix(random, m, inner), At = random_matrix(random, inner, m);
            MatrixCarrier C = leftover(m, n);
            do_binmult(C, Factor(A), B);
            expect_product(C, constant(A, N), false, B, false);
            do_binmult(C, VEMKN::transposed(At), B);
            expect_product(C, constant(At, N), true, B, false);
        });
}

TEST(CarrierDoBinmult, OfNonFiniteConstantsHasNanTangentsWhereTheyEnter)
{
    for (const double entry : {INF, QUIET_NAN}) {
        Random random(5);
        Matrix A = random_matrix(random, 4, 3);
        A(2, 1) = entry;
        const MatrixCarrier B = random_matrix_carrier(random, 4, 2, 1);
        MatrixCarrier C;
        do_binmult(C, VEMKN::transposed(A), B);
        // Column 1 of A is row 1 of the product.
        for (std::size_t r = 0; r < 3; ++r) {
            for (std::size_t c = 0; c < 2; ++c) {
                EXPECT_EQ(r == 1, std::isnan(C.derivatives[0](r, c))) << r << ", " << c;
            }
        }
    }
}

// Shapes that go other ways than small ones: derivatives with gaps between their rows, products in tiles and in panels,
// single columns, single rows.
struct Wide {
    std::size_t m, inner, n, N;
};

constexpr Wide WIDE[] = {{32, 10, 32, 8},
                         {33, 16, 16, 16},
                         {1, 32, 32, 8},
                         {7, 5, 1, 8},
                         {7, 5, 2, 300},
                         {5, 1, 64, 4},
                         {130, 64, 64, 8},
                         {40, 250, 256, 3},
                         {300, 40, 90, 2}};

TEST(CarrierProducts, OfManyTangentsAndWideMatricesFollowTheProductRule)
{
    Random random(11);
    for (const auto& [m, inner, n, N] : WIDE) {
        SCOPED_TRACE(testing::Message() << m << " x " << inner << " x " << n << ", " << N);
        const MatrixCarrier A = random_matrix_carrier(random, m, inner, N);
        const MatrixCarrier B = random_matrix_carrier(random, inner, n, N);
        const MatrixCarrier At = random_matrix_carrier(random, inner, m, N);
        const MatrixCarrier Bt = random_matrix_carrier(random, n, inner, N);
        MatrixCarrier C;
        yafad::do_mult(A, B, C);
        expect_product(C, A, false, B, false);
        yafad::do_binmult(C, A, transposed(Bt));
        expect_product(C, A, false, Bt, true);
        yafad::do_binmult(C, transposed(At), B);
        expect_product(C, At, true, B, false);
        do_mult(RowsView(A.value), B, C);
        expect_product(C, constant(A.value, N), false, B, false);
        do_binmult(C, VEMKN::transposed(At.value), B);
        expect_product(C, constant(At.value, N), true, B, false);
    }
}

TEST(CarrierProducts, AreAddedAfterTheyAreFormed)
{
    // Once into zeros, then onto the same: twice the product exactly, as no sum of single terms would be.
    Random random(12);
    for (const auto& [m, inner, n, N] : WIDE) {
        SCOPED_TRACE(testing::Message() << m << " x " << inner << " x " << n << ", " << N);
        const MatrixCarrier A = random_matrix_carrier(random, inner, m, N);
        const MatrixCarrier B = random_matrix_carrier(random, inner, n, N);
        const yafad::Bundle a = yafad::bundle(A), b = yafad::bundle(B);
        VEMKN::WorkMatrix room;
        yafad::Bundle sum;
        sum.set_shape(m, n, N);
        set_zero(sum);
        do_binmult_add(sum, transposed(a), b, room);
        MatrixCarrier C;
        yafad::unbundle(sum, C);
        expect_product(C, A, true, B, false);

        yafad::Bundle twice = sum;
        do_binmult_add(twice, transposed(a), b, room);
        MatrixCarrier D;
        yafad::unbundle(twice, D);
        for (std::size_t k = 0; k < N; ++k) {
            for (std::size_t i = 0; i < C.size(); ++i) {
                EXPECT_EQ(2.0 * C.derivatives[k].store()[i], D.derivatives[k].store()[i]);
            }
        }

        set_zero(sum);
        do_binmult_add(sum, VEMKN::transposed(A.value), b, room);
        yafad::unbundle(sum, C);
        expect_product(C, constant(A.value, N), true, B, false);
    }
}

TEST(CarrierDoBinplus, AddsABiasToEveryRow)
{
    for (const std::size_t N : TANGENTS) {
        Random random(6);
        const MatrixCarrier A = random_matrix_carrier(random, 4, 3, N);
        const VectorCarrier b = vector_carrier(random, random.list(3), N);
        MatrixCarrier C = leftover(2, 2);
        do_binplus(C, A, b);
        expect_shape(C, 4, 3);
        ASSERT_EQ(N, C.tangents());
        for (std::size_t r = 0; r < 4; ++r) {
            for (std::size_t c = 0; c < 3; ++c) {
                EXPECT_EQ(A.value(r, c) + b.value[c], C.value(r, c));
                for (std::size_t k = 0; k < N; ++k) {
                    EXPECT_EQ(A.derivatives[k](r, c) + b.derivatives[k][c], C.derivatives[k](r, c));
                }
            }
        }
    }
}

TEST(CarrierDoBinplus, AddsElementByElementWhereTheBiasIsAsLongAsTheStore)
{
    for (const std::size_t N : TANGENTS) {
        Random random(7);
        const MatrixCarrier A = random_matrix_carrier(random, 3, 2, N);
        const VectorCarrier b = vector_carrier(random, random.list(6), N);
        MatrixCarrier C;
        do_binplus(C, A, b);
        expect_shape(C, 3, 2);
        ASSERT_EQ(N, C.tangents());
        for (std::size_t i = 0; i < 6; ++i) {
            EXPECT_EQ(A.value.store()[i] + b.value[i], C.value.store()[i]);
            for (std::size_t k = 0; k < N; ++k) {
                EXPECT_EQ(A.derivatives[k].store()[i] + b.derivatives[k][i],
                          C.derivatives[k].store()[i]);
            }
        }
    }
}

TEST(CarrierDoBinplus, MayWriteToItsOwnMatrix)
{
    Random random(8);
    MatrixCarrier A = random_matrix_carrier(random, 3, 2, 2);
    const VectorCarrier b = vector_carrier(random, random.list(2), 2);
    MatrixCarrier apart;
    do_binplus(apart, A, b);
    do_binplus(A, A, b);
    expect_same_carrier(A, apart);
}

TEST(CarrierDoBinplus, SaysInvalidDimsOnceAndFormsNoSum)
{
    for (const std::size_t N : TANGENTS) {
        Random random(9);
        const MatrixCarrier A = random_matrix_carrier(random, 3, 2, N);
        for (const std::size_t length : {0u, 1u, 3u, 5u, 7u}) {
            SCOPED_TRACE(testing::Message() << length << " biases, " << N << " tangents");
            const VectorCarrier b = vector_carrier(random, random.list(length, 1.0, 2.0), N);
            MatrixCarrier C = A;
            Capture err = Capture::error(), out = Capture::output();
            do_binplus(C, C, b);
            // Once for the operation, not once for each of its parts.
            EXPECT_EQ("invalid dims\n", err.text());
            EXPECT_EQ("", out.text());
            expect_same_carrier(C, A);
        }
    }
}

TEST(CarrierDoBinplus, OfAnEmptyBatchIsEmpty)
{
    MatrixCarrier A(Matrix(0, 3), 2);
    Capture err = Capture::error();
    do_binplus(A, A, VectorCarrier(Vector(1.0, 3), 2));
    EXPECT_EQ("", err.text());
    expect_shape(A, 0, 3);
    EXPECT_EQ(2u, A.tangents());
}

TEST(CarrierDoBinplus, LetsNonFiniteEntriesThrough)
{
    MatrixCarrier A = constant(Matrix(1, 3), 1);
    A.value.store() = {INF, -0.0, QUIET_NAN};
    A.derivatives[0].store() = {-INF, -0.0, 1};
    do_binplus(A, A, vector_carrier({-INF, -0.0, 1}, {{1, -0.0, QUIET_NAN}}));
    expect_same(A.value.store(), Numbers{QUIET_NAN, -0.0, QUIET_NAN}, "value");
    expect_same(A.derivatives[0].store(), Numbers{-INF, -0.0, QUIET_NAN}, "derivative");
}
