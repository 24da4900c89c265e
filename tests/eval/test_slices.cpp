#include <gtest/gtest.h>

#include "eval/slices.h"

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
