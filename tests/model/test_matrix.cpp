#include <gtest/gtest.h>

#include "model/linear.h"
#include "model/matrix.h"
#include "support/numbers.h"

using namespace VEMKN;
using Matrix = MatrixTemplate<double>;

TEST(Matrix, StartsEmpty)
{
    const Matrix A;
    EXPECT_EQ(0u, A.rows());
    EXPECT_EQ(0u, A.cols());
    EXPECT_EQ(0u, A.size());
}

TEST(Matrix, StartsWithZerosInTheAskedShape)
{
    const Matrix A(3, 4);
    EXPECT_EQ(3u, A.rows());
    EXPECT_EQ(4u, A.cols());
    EXPECT_EQ(bits_of(Numbers(12, 0.0)), bits_of(A.store()));
}

TEST(Matrix, StoresRowAfterRow)
{
    const double elements[] = {1, 2, 3, 4, 5, 6};
    Matrix A(elements, 2, 3);
    EXPECT_EQ(3.0, A(0, 2));
    EXPECT_EQ(4.0, A(1, 0));
    A(1, 2) = 60;
    EXPECT_EQ(60.0, A.store()[5]);
}

TEST(Matrix, ResizeKeepsTheElementsWhereTheirNumberStays)
{
    const double elements[] = {1, 2, 3, 4, 5, 6};
    Matrix A(elements, 2, 3);
    A.resize(3, 2);
    EXPECT_EQ(3u, A.rows());
    EXPECT_EQ(2u, A.cols());
    EXPECT_EQ(bits_of(elements), bits_of(A.store()));
}

TEST(Matrix, ResizeFillsWithZerosWhereTheNumberOfElementsChanges)
{
    const double elements[] = {1, 2, 3, 4, 5, 6};
    Matrix A(elements, 2, 3);
    A.resize(2, 2);
    EXPECT_EQ(bits_of(Numbers(4, 0.0)), bits_of(A.store()));
    A.resize(0, 7);
    EXPECT_EQ(7u, A.cols());
    EXPECT_EQ(0u, A.size());
}

TEST(Matrix, KeepsTheLower32BitsOfADimension)
{
    Matrix A;
    A.resize((std::uint64_t{1} << 32) + 2, (std::uint64_t{5} << 32) + 3);
    EXPECT_EQ(2u, A.rows());
    EXPECT_EQ(3u, A.cols());
    EXPECT_EQ(6u, A.size());
}

TEST(Matrix, AssignmentCopiesShapeAndValues)
{
    const double elements[] = {1, 2, 3, 4, 5, 6};
    const Matrix A(elements, 2, 3);
    Matrix B(7, 1);
    B = A;
    EXPECT_EQ(2u, B.rows());
    EXPECT_EQ(3u, B.cols());
    EXPECT_EQ(bits_of(elements), bits_of(B.store()));

    // Same number of elements in another shape.
    Matrix C(6, 1);
    C = A;
    EXPECT_EQ(2u, C.rows());
    EXPECT_EQ(3u, C.cols());
}

TEST(Matrix, ACopyHasStorageOfItsOwn)
{
    const double elements[] = {1, 2, 3, 4};
    const Matrix A(elements, 2, 2);
    Matrix B = A;
    B(0, 0) = 10;
    EXPECT_EQ(1.0, A(0, 0));
}

TEST(Colsum, AddsUpEveryColumn)
{
    const double elements[] = {1, 10, 2, 20, 3, 30};
    EXPECT_EQ(bits_of(Numbers{6, 60}), bits_of(colsum(Matrix(elements, 3, 2))));
}

TEST(Colsum, SumsFromTheLastRowUp)
{
    // From the first row down these are 0: the 1 drowns in 1e16.
    const double elements[] = {
        1, 2, 3, 4, 5, 1e16, 1e16, 1e16, 1e16, 1e16, -1e16, -1e16, -1e16, -1e16, -1e16};
    EXPECT_EQ(bits_of(Numbers{1, 2, 3, 4, 5}), bits_of(colsum(Matrix(elements, 3, 5))));
}

TEST(Colsum, SumsFromTheLastRowUpInTallAndWideMatrices)
{
    Random random(1);
    bool order_shows = false;
    for (const std::size_t cols : {1u, 2u, 3u, 4u, 7u, 8u, 33u}) {
        const std::size_t rows = 57;
        Numbers elements = random.list(rows * cols);
        for (double& x : elements) x = std::ldexp(x, static_cast<int>(random.below(40)));
        Numbers upwards(cols), downwards(cols);
        for (std::size_t c = 0; c < cols; ++c) {
            upwards[c] = elements[(rows - 1) * cols + c];
            for (std::size_t r = rows - 1; r-- > 0;) upwards[c] += elements[r * cols + c];
            for (std::size_t r = 0; r < rows; ++r) downwards[c] += elements[r * cols + c];
        }
        order_shows = order_shows || upwards != downwards;
        EXPECT_EQ(bits_of(upwards), bits_of(colsum(Matrix(elements.data(), rows, cols)))) << cols;
    }
    EXPECT_TRUE(order_shows);
}

TEST(Colsum, OfNoRowsIsZeroInEveryColumn)
{
    EXPECT_EQ(bits_of(Numbers(3, 0.0)), bits_of(colsum(Matrix(0, 3))));
    EXPECT_EQ(0u, colsum(Matrix(3, 0)).size());
}

TEST(Colsum, OverwritesItsResult)
{
    const double elements[] = {1, 10, 2, 20};
    const Matrix A(elements, 2, 2);
    std::valarray<double> out(7.0, 5);
    for (int call = 0; call < 2; ++call) {
        colsum(A, out);
        EXPECT_EQ(bits_of(Numbers{3, 30}), bits_of(out));
    }
}

TEST(TakeRows, ReadsSomeRows)
{
    const double elements[] = {1, 2, 3, 4, 5, 6, 7, 8};
    Matrix part(5, 5);
    take_rows(Matrix(elements, 4, 2), {1, 2}, part);
    EXPECT_EQ(2u, part.rows());
    EXPECT_EQ(2u, part.cols());
    EXPECT_EQ(bits_of(Numbers{3, 4, 5, 6}), bits_of(part.store()));
}

TEST(PutColumns, WritesABlockAndNothingElse)
{
    const double elements[] = {1, 2, 3, 4};
    Matrix whole(2, 4);
    whole.store() = 9.0;
    put_columns(whole, 1, Matrix(elements, 2, 2));
    EXPECT_EQ(bits_of(Numbers{9, 1, 2, 9, 9, 3, 4, 9}), bits_of(whole.store()));
}

TEST(TakeColumns, ReadsTheBlockThatPutColumnsWrote)
{
    const double elements[] = {1, 2, 3, 4, 5, 6};
    Matrix part(5, 5);
    take_columns(Matrix(elements, 2, 3), 1, 2, part);
    EXPECT_EQ(2u, part.rows());
    EXPECT_EQ(2u, part.cols());
    EXPECT_EQ(bits_of(Numbers{2, 3, 5, 6}), bits_of(part.store()));
}

TEST(AddColumns, AddsABlock)
{
    const double elements[] = {1, 2, 3, 4, 5, 6};
    Matrix part(2, 2);
    part.store() = 100.0;
    add_columns(Matrix(elements, 2, 3), 1, part);
    EXPECT_EQ(bits_of(Numbers{102, 103, 105, 106}), bits_of(part.store()));
}

TEST(RowsView, SlicesWholeRows)
{
    const double elements[] = {1, 2, 3, 4, 5, 6, 7, 8};
    const RowsView slice = RowsView(elements, 4, 2).slice(1, 2);
    EXPECT_EQ(2u, slice.rows);
    EXPECT_EQ(2u, slice.cols);
    EXPECT_EQ(elements + 2, slice.data);
}
