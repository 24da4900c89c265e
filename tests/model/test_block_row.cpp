#include <gtest/gtest.h>

#include <vector>

#include "model/block_row.h"
#include "support/numbers.h"

using namespace VEMKN;

namespace {

// Matrices side by side and the same one by one. `n` of them with `cols` columns: 8 of 32 columns have gaps between rows.
struct Pair {
    Pair(Random& random, std::size_t rows, std::size_t cols, std::size_t n)
    {
        all.set_shape(rows, cols, n);
        all.fill(1e300);  // gaps too, which nobody may read
        for (std::size_t k = 0; k < n; ++k) {
            const Numbers numbers = random.list(rows * cols);
            each.emplace_back(numbers.data(), rows, cols);
            put_matrix(all, k, each.back());
        }
    }

    BlockRow all;
    std::vector<WorkMatrix> each;
};

void expect_equal(const std::vector<WorkMatrix>& each, const BlockRow& all, double tolerance = 0)
{
    ASSERT_EQ(each.size(), all.count());
    for (std::size_t k = 0; k < each.size(); ++k) {
        ASSERT_EQ(each[k].rows(), all.rows());
        ASSERT_EQ(each[k].cols(), all.cols());
        for (std::size_t r = 0; r < all.rows(); ++r) {
            for (std::size_t c = 0; c < all.cols(); ++c) {
                EXPECT_NEAR(each[k](r, c), all.at(k, r)[c], tolerance) << k << r << c;
            }
        }
    }
}

struct Shape {
    std::size_t rows, cols, n;
};

constexpr Shape SHAPES[] = {
    {1, 1, 1}, {5, 3, 1}, {4, 1, 6}, {7, 5, 3}, {3, 32, 8}, {9, 64, 4}, {0, 4, 2}};

template <class Body>
void for_each_shape(const Body& body)
{
    Random random(1);
    for (const Shape& s : SHAPES) {
        SCOPED_TRACE(testing::Message() << s.n << " of " << s.rows << " x " << s.cols);
        body(random, s);
    }
}

// Rounding of sums of ten products of numbers below ten.
constexpr double TOLERANCE = 1e-12;

}  // namespace

TEST(BlockRow, LeavesGapsBetweenRowsOfAMultipleOfTwoKilobytes)
{
    BlockRow a;
    a.set_shape(3, 32, 8);
    EXPECT_FALSE(a.is_dense());
    EXPECT_EQ(264u, a.pitch());
    a.set_shape(3, 32, 7);
    EXPECT_TRUE(a.is_dense());
    a.set_shape(1, 32, 8);
    EXPECT_TRUE(a.is_dense());
    a.set_shape(3, 256, 1);
    EXPECT_TRUE(a.is_dense());
}

TEST(BlockRow, HoldsMatricesSideBySide)
{
    for_each_shape([](Random& random, const Shape& s) {
        const Pair a(random, s.rows, s.cols, s.n);
        expect_equal(a.each, a.all);
    });
}

TEST(BlockRow, RefusesMoreThanCanBeAddressed)
{
    BlockRow a;
    EXPECT_THROW(a.set_shape(std::uint64_t{1} << 31, std::uint64_t{1} << 31, 2), std::bad_alloc);
    EXPECT_EQ(0u, a.size());
    EXPECT_EQ(0u, a.count());
}

TEST(BlockRow, AddsAndSumsColumns)
{
    for_each_shape([](Random& random, const Shape& s) {
        Pair a(random, s.rows, s.cols, s.n);
        const Pair b(random, s.rows, s.cols, s.n);
        std::vector<WorkMatrix> sums;
        for (std::size_t k = 0; k < s.n; ++k) {
            do_add(a.each[k], b.each[k]);
            const AlignedArray sum = colsum(a.each[k]);
            sums.emplace_back(sum.begin(), 1, s.cols);
        }
        do_add(a.all, b.all);
        expect_equal(a.each, a.all);
        BlockRow of_columns;
        colsum(a.all, of_columns);
        expect_equal(sums, of_columns);
    });
}

TEST(BlockRow, SomeRowsStandWhereTheWholeDoes)
{
    for_each_shape([](Random& random, const Shape& s) {
        const Pair a(random, s.rows + 3, s.cols, s.n);
        const RowRange some{2, s.rows};
        BlockRow part, sums, sums_of_part, product, product_of_part;
        take_rows(a.all, some, part);
        colsum(rows_of(a.all, some), sums);
        colsum(part, sums_of_part);
        for (std::size_t c = 0; c < sums.width(); ++c) {
            EXPECT_EQ(sums_of_part.data()[c], sums.data()[c]);
        }
        if (s.rows == 0) return;
        const Numbers numbers = random.list(2 * s.rows);
        const WorkMatrix left(numbers.data(), 2, s.rows);
        do_binmult(product, Factor(left), rows_of(a.all, some));
        do_binmult(product_of_part, Factor(left), part);
        for (std::size_t r = 0; r < 2; ++r) {
            for (std::size_t c = 0; c < product.width(); ++c) {
                EXPECT_EQ(product_of_part.at(0, r)[c], product.at(0, r)[c]);
            }
        }
    });
}

TEST(BlockRow, MovesRowsAndColumns)
{
    for_each_shape([](Random& random, const Shape& s) {
        Pair whole(random, s.rows + 3, 2 * s.cols, s.n);
        Pair part(random, s.rows + 3, s.cols, s.n);
        for (std::size_t k = 0; k < s.n; ++k) add_columns(whole.each[k], s.cols, part.each[k]);
        add_columns(whole.all, s.cols, part.all);
        expect_equal(part.each, part.all);
        for (std::size_t k = 0; k < s.n; ++k) put_columns(whole.each[k], 0, part.each[k]);
        put_columns(whole.all, 0, part.all);
        expect_equal(whole.each, whole.all);
        for (std::size_t k = 0; k < s.n; ++k) take_columns(whole.each[k], 1, s.cols, part.each[k]);
        take_columns(whole.all, 1, s.cols, part.all);
        expect_equal(part.each, part.all);

        const Pair rows(random, s.rows, s.cols, s.n);
        for (std::size_t k = 0; k < s.n; ++k) put_rows(part.each[k], 2, rows.each[k]);
        put_rows(part.all, 2, rows.all);
        expect_equal(part.each, part.all);
        Pair taken(random, 1, 1, s.n);
        for (std::size_t k = 0; k < s.n; ++k) take_rows(part.each[k], {2, s.rows}, taken.each[k]);
        take_rows(part.all, {2, s.rows}, taken.all);
        expect_equal(taken.each, taken.all);
    });
}

TEST(BlockRow, Transposes)
{
    for_each_shape([](Random& random, const Shape& s) {
        const Pair a(random, s.rows, s.cols, s.n);
        std::vector<WorkMatrix> each(s.n);
        for (std::size_t k = 0; k < s.n; ++k) transpose(a.each[k], each[k]);
        BlockRow all;
        transpose(a.all, all);
        expect_equal(each, all);
    });
}

TEST(BlockRow, MultipliesAsItsMatrices)
{
    for_each_shape([](Random& random, const Shape& s) {
        const Pair a(random, s.rows, s.cols, s.n);
        for (const std::size_t inner : {1u, 4u, 32u}) {
            const Numbers numbers = random.list(std::max(s.rows, s.cols) * inner);
            std::vector<WorkMatrix> each(s.n);
            BlockRow all;

            const WorkMatrix right(numbers.data(), s.cols, inner);
            for (std::size_t k = 0; k < s.n; ++k) do_mult(a.each[k], right, each[k]);
            do_mult(a.all, right, all);
            expect_equal(each, all, TOLERANCE);

            const WorkMatrix left(numbers.data(), s.rows, inner);
            for (std::size_t k = 0; k < s.n; ++k) {
                do_binmult(each[k], transposed(left), Factor(a.each[k]));
            }
            do_binmult(all, transposed(left), a.all);
            expect_equal(each, all, TOLERANCE);

            WorkMatrix room;
            for (std::size_t k = 0; k < s.n; ++k) do_add(each[k], each[k]);
            do_binmult_add(all, transposed(left), a.all, room);
            expect_equal(each, all, 2 * TOLERANCE);
        }
    });
}
