#include <gtest/gtest.h>

#include <vector>

#include "eval/shares.h"
#include "eval/slices.h"

using namespace VEMKN;

namespace {

// Slices of each share as the rule gives them: blocks of ceil(slices/threads).
std::vector<std::pair<std::size_t, std::size_t>> dealt(std::size_t count, unsigned threads)
{
    const Shares shares(count, threads);
    std::vector<std::pair<std::size_t, std::size_t>> blocks;
    for (unsigned s = 0; s < shares.count(); ++s)
        blocks.emplace_back(shares.begin(s), shares.end(s));
    return blocks;
}

using Blocks = std::vector<std::pair<std::size_t, std::size_t>>;

}  // namespace

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

TEST(Shares, AreBlocksOfTheRoundedUpQuotient)
{
    EXPECT_EQ((Blocks{{0, 3}, {3, 6}, {6, 9}, {9, 10}}), dealt(10, 4));
    EXPECT_EQ((Blocks{{0, 2}, {2, 4}, {4, 6}}), dealt(6, 3));
    EXPECT_EQ((Blocks{{0, 5}}), dealt(5, 1));
    // Blocks of two: the fourth thread has nothing left.
    EXPECT_EQ((Blocks{{0, 2}, {2, 4}, {4, 5}}), dealt(5, 4));
}

TEST(Shares, AreNeverEmpty)
{
    EXPECT_EQ((Blocks{{0, 1}, {1, 2}}), dealt(2, 99999));
    EXPECT_EQ(Blocks{}, dealt(0, 4));
}

TEST(Shares, AreAtMostSixtyFour)
{
    EXPECT_EQ(64u, Shares(100'000, 99999).count());
    EXPECT_EQ(64u, Shares(65 * 64, 65).count());
    EXPECT_EQ(50u, Shares(100, 99999).count());
    EXPECT_EQ((Blocks{{0, 1}, {1, 2}, {2, 3}}), dealt(3, 64));
}

TEST(Shares, CoverEverySliceOnce)
{
    for (std::size_t count = 0; count < 60; ++count) {
        for (unsigned threads = 1; threads < 70; ++threads) {
            std::size_t next = 0;
            for (const auto& [begin, end] : dealt(count, threads)) {
                ASSERT_EQ(next, begin);
                ASSERT_LT(begin, end);
                next = end;
            }
            ASSERT_EQ(count, next);
            ASSERT_LE(Shares(count, threads).count(), threads);
        }
    }
}
