#include <cblas.h>
#include <gtest/gtest.h>
#include <omp.h>

#include <atomic>
#include <thread>

#include "support/all_entries.h"
#include "support/size.h"

// Host threads that all call at once, and calls repeated while the machine has other things to do.

namespace {

// Requests that differ in their number of tangents, so that calls with different numbers meet.
std::vector<Request> requests()
{
    std::vector<Request> all;
    for (const unsigned nv : {1u, 3u, 4u}) {
        all.push_back(random_request(usual_network(), 19, 5, nv, nv));
    }
    return all;
}

using AllBits = std::vector<std::vector<std::uint64_t>>;

// `hosts` threads call every entry point that often, each on its own handle or all on one.
void expect_serial_bits(std::size_t hosts, bool one_handle, int calls)
{
    const int blas_threads = openblas_get_num_threads(), omp_threads = omp_get_max_threads();
    const std::vector<Request> asked = requests();
    std::vector<std::unique_ptr<Network>> nets;
    for (std::size_t i = 0; i < (one_handle ? 1 : hosts); ++i) {
        nets.push_back(std::make_unique<Network>(usual_network().text()));
        ASSERT_EQ(0, vemk_setpar(*nets.back(), 2, 8));
    }
    std::vector<AllBits> expected;
    for (const Request& q : asked) expected.push_back(all_bits(*nets[0], q));

    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (std::size_t host = 0; host < hosts; ++host) {
        threads.emplace_back([&, host] {
            VEMKNInfo* const net = *nets[one_handle ? 0 : host];
            for (int i = 0; i < calls; ++i) {
                const std::size_t which = (host + static_cast<std::size_t>(i)) % asked.size();
                if (all_bits(net, asked[which]) != expected[which]) ++wrong;
            }
            if (omp_get_max_threads() != omp_threads) ++wrong;
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(0, wrong) << hosts << " hosts";
    EXPECT_EQ(blas_threads, openblas_get_num_threads());
    EXPECT_EQ(omp_threads, omp_get_max_threads());
}

// Threads that take processor time for as long as this lives.
class Load {
public:
    Load()
    {
        for (std::thread& thread : threads_) {
            thread = std::thread([this] {
                while (!done_) ++turns_;
            });
        }
    }

    ~Load()
    {
        done_ = true;
        for (std::thread& thread : threads_) thread.join();
    }

    Load(const Load&) = delete;
    Load& operator=(const Load&) = delete;

private:
    std::atomic<bool> done_{false};
    std::atomic<std::uint64_t> turns_{0};
    std::array<std::thread, 2> threads_;
};

}  // namespace

TEST(HostThreadsFault, TwoFourAndEightHostThreadsOnOwnHandles_TheSerialBits)
{
    openblas_set_num_threads(2);
    for (const std::size_t hosts : {2u, 4u, 8u}) {
        expect_serial_bits(hosts, false, unless_sanitized(1000));
    }
    openblas_set_num_threads(1);
}

TEST(HostThreadsFault, TwoFourAndEightHostThreadsOnOneHandle_TheSerialBits)
{
    openblas_set_num_threads(2);
    for (const std::size_t hosts : {2u, 4u, 8u}) {
        expect_serial_bits(hosts, true, unless_sanitized(1000));
    }
    openblas_set_num_threads(1);
}

TEST(LoadedMachineFault, TheSameCallManyTimesUnderLoad_OneBitPatternForEachThreadCount)
{
    const Load load;
    const Network net(usual_network().text());
    const Request q = random_request(usual_network(), 75, 5, 2, 1);
    for (const unsigned threads : {1u, 2u, 3u, 8u}) {
        ASSERT_EQ(0, vemk_setpar(net, threads, 8));
        const AllBits first = all_bits(net, q);
        for (int i = 0; i < unless_sanitized(1000); ++i) {
            ASSERT_EQ(first, all_bits(net, q)) << threads << " threads, repetition " << i;
        }
    }
}
