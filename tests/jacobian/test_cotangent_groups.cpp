#include <gtest/gtest.h>

#include "jacobian/cotangent_groups.h"

using VEMKN::CotangentGroups;

TEST(CotangentGroups, HoldEveryWeightingOnceInSharesAsLargeAsWithoutThem)
{
    for (const std::size_t k : {1u, 2u, 5u, 6u, 8u, 9u, 17u, 64u, 100u, 257u}) {
        for (const unsigned threads : {1u, 2u, 3u, 4u, 7u, 64u, 1000u}) {
            for (const std::size_t most : {1u, 2u, 3u, 8u}) {
                SCOPED_TRACE(testing::Message() << k << " cotangents, " << threads << " threads, "
                                                << most << " at most");
                const CotangentGroups groups(k, threads, most);
                const VEMKN::Shares shares(k, threads);
                ASSERT_EQ(shares.count(), groups.shares());
                ASSERT_EQ(groups.shares() * groups.of_share(), groups.count());
                std::size_t next = 0;
                for (std::size_t g = 0; g < groups.count(); ++g) {
                    EXPECT_EQ(next, groups.begin(g));
                    EXPECT_LE(groups.size(g), most);
                    next = groups.end(g);
                    if ((g + 1) % groups.of_share() == 0) {
                        EXPECT_EQ(shares.end(static_cast<unsigned>(g / groups.of_share())), next);
                    }
                }
                EXPECT_EQ(k, next);
            }
        }
    }
}

TEST(CotangentGroups, AreNoMoreThanItTakesAndAboutEqual)
{
    const CotangentGroups groups(9, 2, 4);  // shares of five and four
    ASSERT_EQ(4u, groups.count());
    EXPECT_EQ(2u, groups.size(0));
    EXPECT_EQ(3u, groups.size(1));
    EXPECT_EQ(2u, groups.size(2));
    EXPECT_EQ(2u, groups.size(3));
}

TEST(CotangentGroups, OfNoWeightingsAreNone)
{
    EXPECT_EQ(0u, CotangentGroups(0, 3, 8).count());
}
