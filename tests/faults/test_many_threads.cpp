#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <iostream>
#include <sstream>
#include <string>
#include <thread>

#include "support/all_entries.h"
#include "support/child.h"

// More threads than OpenBLAS has buffers for. Beyond its limit it would end the process.

namespace {

// So wide that products are OpenBLAS's and nearly all of the work: inside one, a thread holds a buffer of it.
plain::Network wide()
{
    plain::Network network = usual_network();
    network.sizes = {5, 400, 250};
    return network;
}

// A number of rows: so many that a product lasts longer than the turn of a thread that shares its processor, and all
// threads stand inside one. An emulator takes that long for an eighth of them.
std::string rows(int number)
{
#ifdef VEMKN_EMULATOR
    number /= 8;
#endif
    return std::to_string(number);
}

}  // namespace

// number of host threads, threads of each, rows, rows of a slice
SCENE(calls_from_many_threads)
{
    const int hosts = std::stoi(arguments.at(0));
    const auto threads = static_cast<unsigned>(std::stoul(arguments.at(1)));
    const Network net(wide().text());
    vemk_setpar(net, threads, std::stoi(arguments.at(3)));
    const Batch batch =
        random_batch(wide(), static_cast<unsigned>(std::stoul(arguments.at(2))), 5, 1);
    const Entry& entry = entry_named("vemk_objv");
    const auto expected = bits_of(results_of(entry, net, batch));

    std::atomic<int> ready{0}, wrong{0};
    std::vector<std::thread> all;
    for (int i = 0; i < hosts; ++i) {
        all.emplace_back([&] {
            ++ready;
            while (ready < hosts) std::this_thread::yield();
            for (int repetition = 0; repetition < 2; ++repetition) {
                if (bits_of(results_of(entry, net, batch)) != expected) ++wrong;
            }
        });
    }
    for (std::thread& host : all) host.join();
    std::cout << wrong << " wrong\n";
}

TEST(ManyThreadsFault, FiftyHostThreadsWithTeams_TheSameBitsAndNoCrash)
{
    const child::Outcome outcome =
        child::play("calls_from_many_threads", {"50", "16", rows(8192), rows(512)});
    EXPECT_TRUE(outcome.exited_with(0)) << outcome.description();
    EXPECT_EQ("VEMKN " VEMKN_VERSION " (C) 2026 the VEMKN developers\n0 wrong\n", outcome.out);
    EXPECT_EQ("", outcome.err);
}

TEST(ManyThreadsFault, TwoHundredHostThreads_TheSameBitsAndNoCrash)
{
    const child::Outcome outcome =
        child::play("calls_from_many_threads", {"200", "1", rows(2048), rows(2048)});
    EXPECT_TRUE(outcome.exited_with(0)) << outcome.description();
    EXPECT_EQ("VEMKN " VEMKN_VERSION " (C) 2026 the VEMKN developers\n0 wrong\n", outcome.out);
    EXPECT_EQ("", outcome.err);
}

namespace {

// 100,000 rows for a network that is done with each of them in no time.
plain::Network tiny()
{
    return {.numin = 2, .numout = 1, .sizes = {2, 2}, .activation = "softplus", .norm = "sum"};
}

constexpr unsigned ROWS = 100'000;

double seconds(const std::function<void()>& work)
{
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace

SCENE(asks_for_99999_threads)
{
    const Network net(tiny().text());
    const Request q = random_request(tiny(), ROWS, 2, 1, 3);
    for (const AnyEntry& entry : ALL_ENTRIES) {
        // The best of several, taken in turn, and more of them where other processes are in the way.
        double most = 1e9, cores = 1e9;
        Reply of_most, of_cores;
        for (int i = 0; i < 5 || (i < 60 && most > 1.9 * cores); ++i) {
            vemk_setpar(net, 99999, 1);
            most = std::min(most, seconds([&] { of_most = entry.run(net, q); }));
            vemk_setpar(net, std::max(1u, std::thread::hardware_concurrency()), 1);
            cores = std::min(cores, seconds([&] { of_cores = entry.run(net, q); }));
        }
        long double furthest = 0;
        for (std::size_t i = 0; i < of_most.numbers.size(); ++i) {
            furthest = std::max(
                furthest,
                std::fabs(static_cast<long double>(of_most.numbers[i]) - of_cores.numbers[i]));
        }
        std::cout << "measured " << entry.name << " " << most / cores << " " << furthest << " "
                  << of_most.status + of_cores.status << "\n";
    }
    for (const char* name : {"vemk_obj", "vemk_g"}) {
        vemk_setpar(net, 99999, 1);
        const Numbers computed = results_of(entry_named(name), net, q.batch);
        const plain::Reals truth = truth_of(entry_named(name), tiny(), q.batch);
        long double furthest = 0;
        for (std::size_t i = 0; i < truth.size(); ++i) {
            furthest = std::max(furthest, std::fabs(computed[i] - truth[i]));
        }
        std::cout << "truth " << furthest << "\n";
    }
}

TEST(ManyThreadsFault,
     NinetyNineThousandThreadsOnAHundredThousandRows_RightInTwiceTheTimeOfTheCores)
{
    // Where other processes want the processors too, threads that spin would only measure who spins more.
    const child::Outcome outcome = child::play(
        "asks_for_99999_threads", {}, {.environment = {{"OMP_WAIT_POLICY", "passive"}}});
    ASSERT_TRUE(outcome.exited_with(0)) << outcome.description();
    EXPECT_EQ("", outcome.err);
    std::istringstream report(outcome.out);
    std::string line;
    int measured = 0, checked = 0;
    while (std::getline(report, line)) {
        std::istringstream words(line);
        std::string what, name;
        long double ratio = 1e9, furthest = 1e9;
        int status = -1;
        words >> what;
        if (what == "measured") {
            words >> name >> ratio >> furthest >> status;
            EXPECT_EQ(0, status) << line;
#if !defined(VEMKN_SANITIZED)
            EXPECT_LT(ratio, 2) << line;
#endif
            // 100,000 additions in another order.
            EXPECT_LT(furthest, 1e-9) << line;
            ++measured;
        } else if (what == "truth") {
            words >> furthest;
            EXPECT_LT(furthest, 1e-11) << line;
            ++checked;
        }
    }
    EXPECT_EQ(11, measured);
    EXPECT_EQ(2, checked);
}
