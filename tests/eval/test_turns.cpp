#include <gtest/gtest.h>

#include <cstdint>
#include <stdexcept>
#include <vector>

#include "eval/team.h"

using namespace VEMKN;

namespace {

struct Local {};

}  // namespace

TEST(Turns, LetEveryItemAddAfterTheOneBefore)
{
    constexpr std::size_t ITEMS = 2000, PLACES = 3;
    for (const unsigned threads : {1u, 2u, 3u, 8u}) {
        const TeamPermit team(ITEMS, threads);
        Turns turns(PLACES, team);
        std::vector<std::vector<std::size_t>> order(PLACES);
        for_each_in_turn<Local>(ITEMS, team, turns, [&](Local&, std::size_t item) {
            for (std::size_t place = 0; place < PLACES; ++place) {
                turns.await(place, item);
                order[place].push_back(item);
                turns.pass_on(place, item);
            }
        });
        for (const std::vector<std::size_t>& of_place : order) {
            ASSERT_EQ(ITEMS, of_place.size());
            for (std::size_t i = 0; i < ITEMS; ++i) ASSERT_EQ(i, of_place[i]) << threads;
        }
    }
}

// Whoever waits for an item that has thrown, or for one that nobody took up after it, has to be let go.
TEST(Turns, KeepNobodyWaitingForAnItemThatThrows)
{
    for (const std::size_t thrower : {0u, 1u, 37u, 99u}) {
        for (int repetition = 0; repetition < 50; ++repetition) {
            const TeamPermit team(100, 4);
            Turns turns(1, team);
            std::size_t added = 0;
            const auto work = [&](Local&, std::size_t item) {
                if (item == thrower) throw std::runtime_error("no memory");
                turns.await(0, item);
                ++added;
                turns.pass_on(0, item);
            };
            EXPECT_THROW(for_each_in_turn<Local>(100, team, turns, work), std::runtime_error);
            EXPECT_LE(added, thrower);
        }
    }
}

TEST(Team, DealsOutNeighboursToAThreadInAscendingOrder)
{
    struct Last {
        std::size_t item = SIZE_MAX;
    };

    for (const std::size_t items : {0u, 1u, 2u, 5u, 100u}) {
        const TeamPermit team(items, 3);
        std::vector<int> runs(items);
        for_each_item<Last>(items, team, [&](Last& last, std::size_t item) {
            ++runs[item];
            EXPECT_TRUE(last.item == SIZE_MAX || last.item + 1 == item);
            last.item = item;
        });
        EXPECT_EQ(std::vector<int>(items, 1), runs);
    }
}
