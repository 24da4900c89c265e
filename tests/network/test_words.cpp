#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/capture.h"
#include "support/network.h"

namespace {

std::vector<std::string> all(const char* (*list)(unsigned))
{
    std::vector<std::string> words;
    for (unsigned i = 0; const char* const word = list(i); ++i) words.emplace_back(word);
    return words;
}

using Words = std::vector<std::string>;

}  // namespace

TEST(Activations, AreListedWithTheirAliasesInTheOrderOfComparison)
{
    EXPECT_EQ((Words{"softplus", "softmax", "softplus_shifted", "atan", "relu", "id"}),
              all(vemk_activations));
}

TEST(Norms, AreListedInTheOrderOfComparison)
{
    EXPECT_EQ((Words{"sum_log_dnorm_fat", "sum"}), all(vemk_norms));
}

TEST(WordLists, AreNullFarPastTheEndToo)
{
    for (const unsigned i : {6u, 7u, 1000u, 0xffffffffu}) {
        EXPECT_EQ(nullptr, vemk_activations(i)) << i;
        EXPECT_EQ(nullptr, vemk_norms(i)) << i;
    }
}

TEST(Norms, AreAllKnownToTheParser)
{
    for (const std::string& norm : all(vemk_norms)) {
        const Network net("1 1 2 1 8 1 2 atan " + norm);
        const double r = 0.5;
        double value = -1.0;
        EXPECT_EQ(0, vemk_norm(net, &r, 1, 1, &value)) << norm;
    }
}
