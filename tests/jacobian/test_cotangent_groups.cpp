#include <gtest/gtest.h>

#include "jacobian/cotangent_groups.h"

using VEMKN::CotangentGroups;

TEST(CotangentGroups, HoldEveryCotangentOnceInAsFewAsItTakesAboutEqual)
{
    for (const std::size_t k : {1u, 2u, 5u, 6u, 8u, 9u, 17u, 64u, 100u, 257u}) {
        for (const std::size_t most : {1u, 2u, 3u, 8u}) {
            SCOPED_TRACE(testing::Message() << k << " cotangents, " << most << " at most");
            const CotangentGroups groups(k, most);
            EXPECT_EQ((k + most - 1) / most, groups.count());
            std::size_t next = 0;
            for (std::size_t g = 0; g < groups.count(); ++g) {
                EXPECT_EQ(next, groups.begin(g));
                EXPECT_LE(groups.size(g), most);
                EXPECT_GE(groups.size(g), k / groups.count());
                next = groups.end(g);
            }
            EXPECT_EQ(k, next);
        }
    }
}

TEST(CotangentGroups, OfNoCotangentsAreNone)
{
    EXPECT_EQ(0u, CotangentGroups(0, 8).count());
}
