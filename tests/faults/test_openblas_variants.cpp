#include <cblas.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>
#include <map>
#include <sstream>

#include "support/all_entries.h"
#include "support/child.h"
#include "support/size.h"

// Systems ship OpenBLAS without threads, with threads of its own and with OpenMP; the library path of the host decides
// which one is loaded.

namespace {

// Wide enough for products that OpenBLAS keeps buffers for.
plain::Network deep()
{
    plain::Network network = usual_network();
    network.sizes = {5, 64, 48};
    return network;
}

// The results of the variant in the folder of that name, or of the one that is loaded anyway.
child::Outcome play_with(const std::string& variant)
{
    std::istringstream folders(VEMKN_OPENBLAS_FOLDERS);
    std::string folder, found;
    while (std::getline(folders, folder, ':')) {
        if (folder.ends_with("/openblas-" + variant)) found = folder;
    }
    if (found.empty()) return {};
    // Before whatever the host has.
    if (const char* const path = std::getenv("LD_LIBRARY_PATH")) found += std::string(":") + path;
    return child::play(
        "prints_its_variant_and_results", {}, {.environment = {{"LD_LIBRARY_PATH", found}}});
}

bool is_installed(const child::Outcome& outcome)
{
    return !outcome.out.empty() || !outcome.exited_with(0);
}

}  // namespace

SCENE(prints_its_variant_and_results)
{
    std::cout << "parallel " << openblas_get_parallel() << "\n";
    const Network net(deep().text());
    const Request q = random_request(deep(), 2000, 5, 2, 1);
    const auto check = [](const char* name, const auto& truth, const Numbers& computed) {
        for (std::size_t i = 0; i < truth.size(); ++i) {
            // Sums of some hundred terms below 20; a norm is up to 18 times as steep as its residual.
            if (!(std::fabs(static_cast<long double>(computed[i]) - truth[i]) <= 1e-10L)) {
                std::cout << name << " " << i << " is wrong: " << computed[i] << "\n";
                return;
            }
        }
    };
    std::map<std::string, Numbers> alone;
    vemk_setpar(net, 1, 64);
    for (const AnyEntry& entry : ALL_ENTRIES) alone[entry.name] = entry.run(net, q).numbers;
    for (const char* name : {"vemk_residual", "vemk_obj", "vemk_objv"}) {
        check(name, truth_of(entry_named(name), deep(), q.batch), alone[name]);
    }
    vemk_setpar(net, 4, 64);
    for (int repetition = 0; repetition < unless_sanitized(20); ++repetition) {
        for (const AnyEntry& entry : ALL_ENTRIES) {
            check(entry.name, alone[entry.name], entry.run(net, q).numbers);
        }
    }
    for (const auto& patterns : all_bits(net, q)) {
        if (patterns.empty()) std::cout << "refused\n";
        for (const std::uint64_t pattern : patterns) std::cout << std::hex << pattern << "\n";
    }
}

TEST(SerialBlasFault, SerialOpenBlasWithFourThreads_RightResults)
{
    const child::Outcome outcome = play_with("serial");
    if (!is_installed(outcome)) GTEST_SKIP() << "the serial variant is not installed";
    EXPECT_TRUE(outcome.exited_with(0)) << outcome.description().substr(0, 1000);
    EXPECT_NE(std::string::npos, outcome.out.find("parallel 0\n"));
    EXPECT_EQ(std::string::npos, outcome.out.find("wrong")) << outcome.out.substr(0, 1000);
    EXPECT_EQ(std::string::npos, outcome.out.find("refused"));
}

TEST(BlasVariantsFault, PthreadAndOpenMpOpenBlas_RightResultsAndTheSameBits)
{
    const child::Outcome pthread = play_with("pthread"), openmp = play_with("openmp");
    for (const auto& [outcome, said] :
         {std::pair(&pthread, "parallel 1\n"), std::pair(&openmp, "parallel 2\n")}) {
        if (!is_installed(*outcome)) GTEST_SKIP() << "no variant that says " << said;
        EXPECT_TRUE(outcome->exited_with(0)) << outcome->description().substr(0, 1000);
        EXPECT_NE(std::string::npos, outcome->out.find(said));
        EXPECT_EQ(std::string::npos, outcome->out.find("wrong")) << outcome->out.substr(0, 1000);
        EXPECT_EQ(std::string::npos, outcome->out.find("refused"));
    }
    const auto bits = [](const child::Outcome& o) {
        return o.out.substr(o.out.find("parallel ") + 11);
    };
    EXPECT_GT(bits(pthread).size(), 10000u);
    EXPECT_EQ(bits(pthread), bits(openmp));
}
