#include <gtest/gtest.h>
#include <sys/resource.h>

#include <chrono>
#include <fstream>
#include <iostream>
#include <sstream>

#include "support/child.h"
#include "support/network.h"

// Counts whose products do not fit 32 bits are refused before anything is allocated: the process may have next to no
// more memory than it has.

namespace {

constexpr const char* TEXT = "3 2 2 1 8 3 4 softplus sum";
constexpr unsigned NW = 26;

long pages_in_use()
{
    long pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    return pages;
}

// For as long as it lives, the process may have no more than that beside what it has. The smallest array in question
// takes 32 GB; a thread that OpenBLAS is about to start takes less than this.
class ScarceMemory {
public:
    ScarceMemory()
    {
        getrlimit(RLIMIT_AS, &before_);
        rlimit scarce = before_;
        scarce.rlim_cur = static_cast<rlim_t>(pages_in_use() * sysconf(_SC_PAGESIZE)) + (200 << 20);
        setrlimit(RLIMIT_AS, &scarce);
    }

    ~ScarceMemory() { setrlimit(RLIMIT_AS, &before_); }

    ScarceMemory(const ScarceMemory&) = delete;
    ScarceMemory& operator=(const ScarceMemory&) = delete;

private:
    rlimit before_{};
};

// nw is right, nothing is given, nothing is wanted.
int run(const std::string& name, VEMKNInfo* net, unsigned nrows, unsigned n)
{
    if (name == "vemk_compute")
        return vemk_compute(net, nullptr, NW, nullptr, nrows, 3, 0, nullptr);
    if (name == "vemk_residual")
        return vemk_residual(net, nullptr, NW, nullptr, nullptr, nrows, 3, 2, nullptr);
    if (name == "vemk_obj")
        return vemk_obj(net, nullptr, NW, nullptr, nullptr, nrows, 3, 2, nullptr);
    if (name == "vemk_objv")
        return vemk_objv(net, nullptr, NW, nullptr, nullptr, nrows, 3, 2, nullptr);
    if (name == "vemk_norm") return vemk_norm(net, nullptr, nrows, n, nullptr);
    if (name == "vemk_g")
        return vemk_g(net, nullptr, NW, nullptr, nullptr, nrows, 3, 2, nullptr, nullptr);
    if (name == "vemk_Hv")
        return vemk_Hv(
            net, nullptr, NW, nullptr, n, nullptr, nullptr, nrows, 3, 2, nullptr, nullptr, nullptr);
    if (name == "vemk_Jv")
        return vemk_Jv(
            net, nullptr, NW, nullptr, n, nullptr, nullptr, nrows, 3, 2, nullptr, nullptr);
    if (name == "vemk_vJ")
        return vemk_vJ(
            net, nullptr, NW, nullptr, 0, nullptr, nullptr, nrows, 3, 2, nullptr, nullptr);
    return vemk_vJ_vec(
        net, nullptr, NW, nullptr, n, nullptr, nullptr, nrows, 3, 2, nullptr, nullptr);
}

struct Counts {
    const char* name;
    unsigned nrows, n;
    const char* product;  // as the message gives it
};

constexpr unsigned MOST = 4294967295u, HALF = 2147483648u;

// Exactly 2^32 or the first multiple from there on, and as many as the arguments can say.
const Counts HUGE_COUNTS[] = {
    {"vemk_compute", HALF, 1, " 4294967296,"},
    {"vemk_compute", MOST, 1, " 8589934590,"},
    {"vemk_residual", HALF, 1, " 4294967296,"},
    {"vemk_residual", MOST, 1, " 8589934590,"},
    {"vemk_obj", HALF, 1, " 4294967296,"},
    {"vemk_objv", MOST, 1, " 8589934590,"},
    {"vemk_norm", 65536, 65536, " 4294967296,"},
    {"vemk_norm", MOST, MOST, " 18446744065119617025,"},
    {"vemk_g", HALF, 1, " 4294967296,"},
    {"vemk_Hv", HALF, 1, " 4294967296,"},
    {"vemk_Hv", 5, 165191050, " 4294967300,"},
    {"vemk_Hv", 5, MOST, " 111669149670,"},
    {"vemk_Jv", MOST, 1, " 8589934590,"},
    {"vemk_Jv", 5, 165191050, " 4294967300,"},
    {"vemk_Jv", 5, MOST, " 111669149670,"},
    {"vemk_vJ", HALF, 1, " 4294967296,"},
    {"vemk_vJ_vec", MOST, 1, " 8589934590,"},
    {"vemk_vJ_vec", 5, 429496730, " 4294967300,"},
    {"vemk_vJ_vec", 1 << 16, 1 << 15, " 4294967296,"},
    // As much as can be asked for: 2^31 - 1 rows of two, MOST times.
    {"vemk_vJ_vec", HALF - 1, MOST, " 18446744060824649730,"},
};

}  // namespace

// the number of a row of HUGE_COUNTS
SCENE(asks_for_too_many)
{
    const Counts& counts = HUGE_COUNTS[std::stoul(arguments.at(0))];
    const Network net(TEXT);
#if !defined(VEMKN_SANITIZED)
    // A sanitizer reserves terabytes of address space.
    const ScarceMemory scarce;
#endif
    const auto start = std::chrono::steady_clock::now();
    const int status = run(counts.name, net, counts.nrows, counts.n);
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
    std::cout << "\nreturned " << status << " " << time.count() << std::endl;
}

TEST(HugeCountsFault, CountsWhoseProductNeeds33Bits_OneLineAndMinusOneBeforeAnyAllocation)
{
    for (std::size_t i = 0; i < std::size(HUGE_COUNTS); ++i) {
        const child::Outcome outcome = child::play("asks_for_too_many", {std::to_string(i)});
        ASSERT_TRUE(outcome.exited_with(0)) << HUGE_COUNTS[i].name << ": " << outcome.description();
        int status = 0;
        double seconds = 1e9;
        const std::string mark = "\nreturned ";
        std::istringstream(outcome.out.substr(outcome.out.find(mark) + mark.size())) >> status >>
            seconds;
        EXPECT_EQ(-1, status) << HUGE_COUNTS[i].name;
        EXPECT_LT(seconds, 1) << HUGE_COUNTS[i].name;
        EXPECT_EQ(0u, outcome.err.find(std::string(HUGE_COUNTS[i].name) + ": refused: "));
        EXPECT_NE(std::string::npos, outcome.err.find(HUGE_COUNTS[i].product)) << outcome.err;
        EXPECT_EQ(outcome.err.size() - 1, outcome.err.find('\n')) << outcome.err;
    }
}
