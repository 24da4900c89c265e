#include <gtest/gtest.h>

#include <vector>

#include "eval/slices.h"
#include "model/model.h"

using namespace VEMKN;

TEST(Slices, ABatchThatIsNotLargerIsOneSlice)
{
    EXPECT_TRUE(Slices(8, 8).single());
    EXPECT_TRUE(Slices(7, 8).single());
    EXPECT_TRUE(Slices(0, 1).single());
    EXPECT_FALSE(Slices(9, 8).single());
}

TEST(Slices, OneRowMoreIsASliceOfOneRow)
{
    const Slices slices(9, 8);
    EXPECT_EQ(2u, slices.count());
    EXPECT_EQ(8u, slices.rows_of(0));
    EXPECT_EQ(8u, slices.first_row(1));
    EXPECT_EQ(1u, slices.rows_of(1));
}

TEST(Slices, TheLastOneIsFullWhereNothingRemains)
{
    const Slices slices(24, 8);
    EXPECT_EQ(3u, slices.count());
    EXPECT_EQ(8u, slices.rows_of(2));
}

TEST(Slices, CoverEveryRowOnce)
{
    for (std::size_t rows = 0; rows < 40; ++rows) {
        for (int batch = 1; batch < 45; ++batch) {
            const Slices slices(rows, batch);
            std::size_t next = 0;
            for (std::size_t s = 0; s < slices.count(); ++s) {
                ASSERT_EQ(next, slices.first_row(s));
                ASSERT_GE(slices.rows_of(s), 1u);
                ASSERT_LE(slices.rows_of(s), static_cast<std::size_t>(batch));
                next += slices.rows_of(s);
            }
            ASSERT_EQ(rows, next) << batch;
        }
    }
}

TEST(Slices, StandTheLargestCounts)
{
    const Slices slices(4294967295u, 2147483647);
    EXPECT_EQ(3u, slices.count());
    EXPECT_EQ(1u, slices.rows_of(2));
}

TEST(Slices, NeighboursAreSlicesOfTheirRows)
{
    const Slices slices(27, 4);
    for (std::size_t first = 0; first < slices.count(); ++first) {
        for (std::size_t n = 1; first + n <= slices.count(); ++n) {
            const RowRange rows = slices.rows(first, n);
            const Slices part = slices.part(first, n);
            EXPECT_EQ(rows.count, part.rows());
            ASSERT_EQ(n, part.count());
            for (std::size_t j = 0; j < n; ++j) {
                EXPECT_EQ(slices.first_row(first + j), rows.first + part.first_row(j));
                EXPECT_EQ(slices.rows_of(first + j), part.rows_of(j));
            }
        }
    }
}

namespace {

DoubleModel network(const std::vector<std::size_t>& widths)
{
    DoubleModel net;
    net.nmult = 1;
    for (std::size_t i = 1; i < widths.size(); ++i) {
        net.weights.emplace_back(widths[i - 1], widths[i]);
    }
    return net;
}

}  // namespace

TEST(SlicesTogether, AreAsManyAsStayInCache)
{
    const Slices slices(10'000, 32);
    const std::size_t narrow = slices_together(network({2, 5, 1}), slices, 4);
    const std::size_t wider = slices_together(network({8, 16, 16, 1}), slices, 4);
    EXPECT_GT(narrow, wider);
    EXPECT_GT(wider, 1u);
    EXPECT_EQ(1u, slices_together(network({20, 300, 300, 4}), slices, 4));
    EXPECT_EQ(1u, slices_together(network({2, 5, 1}), Slices(10'000, 8192), 4));
}

TEST(SlicesTogether, AreNoMoreThanThereAre)
{
    EXPECT_EQ(3u, slices_together(network({2, 5, 1}), Slices(9, 4), 4));
    EXPECT_EQ(1u, slices_together(network({2, 5, 1}), Slices(4, 4), 4));
    EXPECT_EQ(1u, slices_together(network({2, 5, 1}), Slices(0, 4), 4));
}

TEST(SlicesTogether, AreOneWhereAProductOfOpenBlasOrSeveralPassesSeeThem)
{
    const Slices slices(10'000, 2);
    EXPECT_EQ(1u, slices_together(network({400, 1, 1}), slices, 1));
    DoubleModel chained = network({2, 2, 2});
    EXPECT_GT(slices_together(chained, slices, 4), 1u);
    chained.nmult = 2;
    EXPECT_EQ(1u, slices_together(chained, slices, 4));
}
