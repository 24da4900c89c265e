#include <gtest/gtest.h>

#include "support/calls.h"
#include "support/capture.h"
#include "support/size.h"

// Networks drawn at random, every entry point against the plain loops.

namespace {

struct Names {
    const char* activation;
    const char* norm;
};

std::string name_of_pair(const testing::TestParamInfo<Names>& instance)
{
    return std::string(instance.param.activation) + "_" + instance.param.norm;
}

std::vector<Names> all_names()
{
    std::vector<Names> all;
    for (const char* activation :
         {"softplus", "softmax", "softplus_shifted", "atan", "relu", "id", "anything"}) {
        for (const char* norm : {"sum", "sum_log_dnorm_fat"}) all.push_back({activation, norm});
    }
    return all;
}

plain::Network random_network(Random& random, const Names& names)
{
    plain::Network network;
    network.activation = names.activation;
    network.norm = names.norm;
    network.numout = 1 + random.below(4);
    network.nmult = random.below(2) == 0 ? 1 : 1 + random.below(3);
    const unsigned layers = 2 + random.below(3);
    for (unsigned i = 0; i < layers; ++i) network.sizes.push_back(random.below(7));
    // The chain fits where the last hidden width is the first size.
    if (network.nmult > 1) network.sizes.back() = network.sizes.front();
    network.numin = random.below(2) == 0 ? std::max(1u, network.sizes[0]) : 1 + random.below(9);
    return network;
}

class RandomNetworks : public testing::TestWithParam<Names> {};

}  // namespace

TEST_P(RandomNetworks, GiveWhatThePlainLoopsGive)
{
    const auto last = static_cast<std::uint64_t>(trials(60));
    for (std::uint64_t seed = 1; seed <= last; ++seed) {
        Random random(seed);
        const plain::Network network = random_network(random, GetParam());
        const unsigned xcols = random.below(std::min(network.numin, network.sizes[0]) + 1);
        const unsigned nrows = 1 + random.below(40);
        const int batch_rows = 1 + static_cast<int>(random.below(nrows + 2));
        const unsigned threads = 1 + random.below(5);
        SCOPED_TRACE(testing::Message() << "seed " << seed << ": " << network.text() << "; rows "
                                        << nrows << ", columns " << xcols << ", batch "
                                        << batch_rows << ", threads " << threads);

        const Network net(network.text());
        ASSERT_EQ(network.numel(), vemk_numel(net));
        ASSERT_EQ(0, vemk_setpar(net, threads, batch_rows));
        const Batch batch = random_batch(network, nrows, xcols, seed);
        for (const Entry& entry : ENTRIES) {
            SCOPED_TRACE(entry.name);
            const plain::Reals truth = truth_of(entry, network, batch);
            long double largest = 1;
            for (const plain::Real value : truth) largest = std::max(largest, std::fabs(value));
            // Up to 12 products of up to 18 terms in a row, each rounded; a likelihood near 18 is 18 times as steep as a
            // residual near 1. The largest difference seen is a hundredth of this.
            expect_close(
                results_of(entry, net, batch), truth, 2e-12 * static_cast<double>(largest));
        }
        if (HasFailure()) return;
    }
}

INSTANTIATE_TEST_SUITE_P(Names, RandomNetworks, testing::ValuesIn(all_names()), name_of_pair);

TEST(PlainNetwork, DifferentiatesLikeCentralDifferences)
{
    // The truth itself: its complex steps against differences, in long double.
    for (const Names& names : all_names()) {
        Random random(77);
        plain::Network network{.numin = 3,
                               .numout = 2,
                               .nmult = 2,
                               .sizes = {3, 4, 3},
                               .activation = names.activation,
                               .norm = names.norm};
        const Batch b = random_batch(network, 5, 3, 78);
        const plain::Reals gradient = network.gradient(b.w, b.x, b.y, 5, 3);
        plain::Reals w(b.w.begin(), b.w.end());
        const plain::Real h = 1e-6L;
        for (std::size_t i = 0; i < w.size(); ++i) {
            const plain::Real at = w[i];
            w[i] = at + h;
            const plain::Real up = network.weighted(w, b.x, b.y, 5, 3, network.mean(5));
            w[i] = at - h;
            const plain::Real down = network.weighted(w, b.x, b.y, 5, 3, network.mean(5));
            w[i] = at;
            // Truncation h^2 times a third derivative of some thousands (the core's curvature through the chain).
            EXPECT_NEAR(
                static_cast<double>((up - down) / (2 * h)), static_cast<double>(gradient[i]), 1e-8)
                << names.activation << " " << names.norm << " " << i;
        }
    }
}

TEST(PlainNetwork, EvaluatesASmallNetworkDoneByHand)
{
    const plain::Network network{.numin = 2, .numout = 1, .sizes = {2, 2}, .activation = "relu"};
    EXPECT_EQ("2 1 2 1 8 2 2 relu sum", network.text());
    EXPECT_EQ(9u, network.numel());
    const Numbers w = {1, -1, 2, 3, -1, 1, 0.5, 10, 100};
    // Z = (1 + 2*3 - 4, -1 + 3*3 + 4) = (3, 12); y = 0.5 + 30 + 1200.
    EXPECT_EQ(1230.5L, network.outputs(w, {3, 4}, 1, 2)[0]);
    EXPECT_EQ(1200.5L, network.objective(w, {3, 4}, {30}, 1, 2));
}
