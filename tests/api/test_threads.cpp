#include <gtest/gtest.h>
#include <omp.h>

#include "support/calls.h"

// Results with teams of threads: right, and the same bits every time.

namespace {

// Some hundred roundings of numbers below 10.
constexpr double ROUNDING = 1e-12;

// With 203 rows enough work for a team.
plain::Network medium()
{
    return {.numin = 5,
            .numout = 2,
            .sizes = {5, 24, 20},
            .activation = "softplus",
            .norm = "sum_log_dnorm_fat"};
}

// Its gradient is not kept for each slice: its rows are dealt out.
plain::Network tall()
{
    plain::Network network = medium();
    network.sizes = {150, 120};
    return network;
}

class Threads : public testing::TestWithParam<Entry> {
protected:
    const Entry& entry() const { return GetParam(); }
};

}  // namespace

TEST_P(Threads, GiveTheSameBitsEveryTime)
{
    const Network net(medium().text());
    // 26 slices, the last one of three rows.
    const Batch batch = random_batch(medium(), 203, 5, 1);
    const plain::Reals truth = truth_of(entry(), medium(), batch);
    for (const unsigned threads : {1u, 2u, 3u, 4u, 8u}) {
        ASSERT_EQ(0, vemk_setpar(net, threads, 8));
        const Numbers first = results_of(entry(), net, batch);
        expect_close(first, truth, ROUNDING);
        for (int repetition = 0; repetition < 200; ++repetition) {
            ASSERT_EQ(bits_of(first), bits_of(results_of(entry(), net, batch)))
                << threads << " threads, repetition " << repetition;
        }
    }
}

TEST_P(Threads, ChangeNoBit)
{
    plain::Network chained = medium(), padded = medium(), wide = medium();
    chained.sizes = {5, 7, 5};
    chained.nmult = 3;
    padded.sizes = {9, 4};
    // A gradient of a layer that OpenBLAS multiplies.
    wide.sizes = {5, 400, 3};
    for (const plain::Network& network : {medium(), chained, padded, tall(), wide}) {
        const Network net(network.text());
        const Batch batch = random_batch(network, 203, 5, 8);
        for (const int rows : {1, 8, 32}) {
            if (rows == 1 && (network.sizes[0] == 150 || network.sizes[1] == 400)) continue;
            ASSERT_EQ(0, vemk_setpar(net, 1, rows));
            const auto expected = bits_of(results_of(entry(), net, batch));
            for (const unsigned threads : {2u, 3u, 5u, 64u, 1000u}) {
                ASSERT_EQ(0, vemk_setpar(net, threads, rows));
                EXPECT_EQ(expected, bits_of(results_of(entry(), net, batch)))
                    << network.text() << ", " << threads << " threads, slices of " << rows;
            }
        }
    }
}

TEST_P(Threads, GiveTheSameBitsInsideAParallelRegionOfTheHost)
{
    for (const plain::Network& network : {medium(), tall()}) {
        const Network net(network.text());
        ASSERT_EQ(0, vemk_setpar(net, 4, 8));
        const Batch batch = random_batch(network, 203, 5, 2);
        const auto expected = bits_of(results_of(entry(), net, batch));
        // Once without teams inside teams, once with.
        for (const int levels : {1, 2}) {
            omp_set_max_active_levels(levels);
            int wrong = 0;
#pragma omp parallel num_threads(3) reduction(+ : wrong)
            for (int repetition = 0; repetition < 10; ++repetition) {
                wrong += bits_of(results_of(entry(), net, batch)) != expected;
            }
            EXPECT_EQ(0, wrong) << network.text() << ", " << levels;
        }
        omp_set_max_active_levels(1);
    }
}

TEST_P(Threads, GiveTheSameBitsWhateverTeamSizeTheHostAllows)
{
    const Network net(medium().text());
    ASSERT_EQ(0, vemk_setpar(net, 8, 8));
    const Batch batch = random_batch(medium(), 203, 5, 3);
    const auto expected = bits_of(results_of(entry(), net, batch));
    omp_set_dynamic(1);
    const auto adjusted = bits_of(results_of(entry(), net, batch));
    omp_set_dynamic(0);
    const int before = omp_get_max_threads();
    omp_set_num_threads(1);
    const auto computed = bits_of(results_of(entry(), net, batch));
    omp_set_num_threads(before);
    EXPECT_EQ(expected, adjusted);
    EXPECT_EQ(expected, computed);
}

TEST_P(Threads, AreNeverMoreThanThereAreSlices)
{
    const Network net(medium().text());
    ASSERT_EQ(0, vemk_setpar(net, 99999, 8));
    const Batch batch = random_batch(medium(), 200, 5, 4);
    expect_close(results_of(entry(), net, batch), truth_of(entry(), medium(), batch), ROUNDING);
    // More threads than two slices.
    const Batch short_batch = random_batch(medium(), 9, 5, 5);
    expect_close(
        results_of(entry(), net, short_batch), truth_of(entry(), medium(), short_batch), ROUNDING);
}

TEST_P(Threads, LoseNoSliceWhenTheTeamIsCapped)
{
    const plain::Network network{
        .numin = 2, .numout = 1, .sizes = {2, 2}, .activation = "atan", .norm = "sum"};
    const Network net(network.text());
    ASSERT_EQ(0, vemk_setpar(net, 99999, 1));
    const Batch batch = random_batch(network, 20000, 2, 6);
    // 20,000 sums.
    expect_close(results_of(entry(), net, batch), truth_of(entry(), network, batch), 1e-11);
}

TEST_P(Threads, GiveTheDirectResultForOneSlice)
{
    // As many rows as a slice: no split, whatever the number of threads.
    const Network net(medium().text());
    const Batch batch = random_batch(medium(), 32, 5, 7);
    const auto direct = bits_of(results_of(entry(), net, batch));
    for (const unsigned threads : {2u, 8u, 99999u}) {
        for (const int rows : {32, 33, 2147483647}) {
            ASSERT_EQ(0, vemk_setpar(net, threads, rows));
            EXPECT_EQ(direct, bits_of(results_of(entry(), net, batch)));
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Entries,
                         Threads,
                         testing::ValuesIn(entries_where([](const Entry& e) {
                             return e.runs_slices;
                         })),
                         name_of);
