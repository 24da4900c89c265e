#include <gtest/gtest.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <functional>
#include <iostream>
#include <thread>
#include <utility>

#include "support/all_entries.h"
#include "support/child.h"
#include "support/fp_state.h"

// Arithmetic inside a call that makes a NaN out of numbers, divides by zero or overflows ends the process.

namespace {

plain::Network small(const std::string& norm)
{
    return {.numin = 2, .numout = 1, .sizes = {2, 2}, .activation = "id", .norm = norm};
}

// Hidden units of 2 in every row but the last, where 1e160 * 1e160 is one of their products.
void overflow_in_the_last_row(Batch& b)
{
    b.w = {0, 0, 1e160, 1e160, 1e160, 1e160, 0, 1, 1};
    for (double& x : b.x) x = 1e-160;
    b.x.back() = 1e160;
}

using Change = std::function<void(Batch&)>;

class Trap : public testing::TestWithParam<Entry> {
protected:
    void expect_sigfpe(const std::string& norm, const Change& change) const
    {
        for (const unsigned threads : {1u, 4u}) {
            EXPECT_EXIT(run(norm, change, threads), testing::KilledBySignal(SIGFPE), "")
                << GetParam().name << ", threads " << threads;
        }
    }

    // 1,250 slices of two rows: enough work for a team.
    void run(const std::string& norm, const Change& change, unsigned threads) const
    {
        const Network net(small(norm).text());
        vemk_setpar(net, threads, 2);
        Batch batch = random_batch(small(norm), 2500, 2, 1);
        change(batch);
        results_of(GetParam(), net, batch);
    }
};

class LikelihoodTrap : public Trap {};

std::vector<Entry> likelihood_entries()
{
    return entries_where([](const Entry& e) { return e.uses_norm; });
}

}  // namespace

TEST_P(Trap, CatchesAnOverflowInTheProducts)
{
    expect_sigfpe("sum", [](Batch& b) { b.w.assign(b.w.size(), 1e200); });
}

TEST_P(Trap, CatchesAnOverflowInTheLastRow)
{
    expect_sigfpe("sum", overflow_in_the_last_row);
}

TEST_P(Trap, CatchesANanMadeOfInfinities)
{
    expect_sigfpe("sum", [](Batch& b) {
        // The two inputs enter each hidden unit with opposite signs.
        b.w = {0, 0, 1, 1, -1, -1, 0, 1, 1};
        b.x[10] = b.x[11] = INF;
    });
}

TEST_P(Trap, CatchesASignallingNan)
{
    expect_sigfpe("sum", [](Batch& b) {
        const std::uint64_t signalling = 0x7ff4000000000000u;
        std::memcpy(&b.x[10], &signalling, sizeof signalling);
    });
}

TEST_P(Trap, LetsInfinitiesPassThatMeetNothing)
{
    // Infinity times one plus numbers is no exception.
    run(
        "sum",
        [](Batch& b) {
            b.w = {1, 1, 1, 1, 1, 1, 1, 1, 1};
            b.x[10] = INF;
        },
        4);
}

INSTANTIATE_TEST_SUITE_P(Entries, Trap, testing::ValuesIn(ENTRIES), name_of);

TEST(Traps, LetInfiniteWeightsOfTheHandlePassThatMeetNothing)
{
    // A hidden unit is infinite, and goes into a product with three columns: no multiple of any vector's length.
    const Network net("2 3 2 1 8 2 5 relu sum");
    Numbers w(vemk_numel(net), 1.0);
    const auto nw = static_cast<unsigned>(w.size());
    w[5] = INF;
    ASSERT_EQ(0, vemk_setweights(net, w.data(), nw));
    const Numbers x(40, 1.0), y(60, 1.0);
    for (const double* weights : {static_cast<const double*>(nullptr), std::as_const(w).data()}) {
        double value = 0.0;
        EXPECT_EQ(0, vemk_obj(net, weights, nw, x.data(), y.data(), 20, 2, 3, &value));
        EXPECT_EQ(INF, value);
    }
}

// Products of so wide a layer are OpenBLAS's, whose kernels compute with whole registers: without the scan of the arguments an
// infinity would meet a zero beyond a matrix's edge.
TEST(Traps, LetInfinitiesPassThatMeetNothingInAWideLayer)
{
    const plain::Network wide{
        .numin = 2, .numout = 3, .sizes = {2, 401}, .activation = "id", .norm = "sum"};
    const Network net(wide.text());
    Request ones = random_request(wide, 5, 2, 2, 1);
    for (Numbers* numbers : {&ones.batch.w, &ones.batch.x, &ones.batch.y, &ones.v}) {
        std::fill(numbers->begin(), numbers->end(), 1.0);
    }
    for (const AnyEntry& entry : ALL_ENTRIES) {
        if (entry.is_norm_alone()) continue;
        const std::string name = entry.name;
        // Where weights and inputs get tangents, these begin as weights and inputs times 0.0: a NaN of their own.
        const bool has_tangents = name == "vemk_Hv" || name == "vemk_Jv";
        Request weight = ones, input = ones, vector = ones;
        weight.batch.w[7] = input.batch.x[7] = vector.v[7] = INF;
        for (const Request* q : {&weight, &input, &vector}) {
            if (has_tangents && q != &vector) continue;
            const Reply reply = entry.run(net, *q);
            EXPECT_EQ(0, reply.status) << name;
            for (const double number : reply.numbers) EXPECT_LE(0.0, number) << name;
        }
    }
}

TEST(Traps, LeaveAnInputAloneThatHasTooManyColumns)
{
    const Network net("2 1 2 1 8 2 5 relu sum");
    const Numbers w(vemk_numel(net), 1.0), x(6, 1.0), y(3, 1.0);
    double value = 0.0;
    EXPECT_EXIT(vemk_obj(net,
                         w.data(),
                         static_cast<unsigned>(w.size()),
                         x.data(),
                         y.data(),
                         3,
                         4000000000U,
                         1,
                         &value),
                testing::ExitedWithCode(3),
                "too many predicates: 4000000000 > 2");
}

TEST_P(LikelihoodTrap, CatchesASquareThatOverflows)
{
    expect_sigfpe("sum_log_dnorm_fat", [](Batch& b) { b.y[5] = 1.4e154; });
    expect_sigfpe("sum_log_dnorm_fat", [](Batch& b) { b.y[15] = -1.7e308; });
}

TEST_P(LikelihoodTrap, CatchesTheLogarithmOfADensityThatIsZero)
{
    expect_sigfpe("sum_log_dnorm_fat", [](Batch& b) { b.y[5] = INF; });
}

INSTANTIATE_TEST_SUITE_P(Entries, LikelihoodTrap, testing::ValuesIn(likelihood_entries()), name_of);

namespace {

void norm_of(double x)
{
    const Network net("2 1 2 1 8 2 2 id sum_log_dnorm_fat");
    Numbers r(11, 0.5);
    r[9] = x;
    double result = 0;
    vemk_norm(net, r.data(), 11, 1, &result);
}

void logp_of(double x)
{
    const Network net("2 1 2 1 8 2 2 id sum_log_dnorm_fat");
    Numbers r(11, 0.5), y(11);
    r[9] = x;
    vemk_logp(net, r.data(), 11, y.data());
}

}  // namespace

TEST(NormTrap, CatchesOverflowAndDivisionByZero)
{
    for (const double x : {1.4e154, -1e300, INF}) {
        EXPECT_EXIT(norm_of(x), testing::KilledBySignal(SIGFPE), "") << x;
        EXPECT_EXIT(logp_of(x), testing::KilledBySignal(SIGFPE), "") << x;
    }
    norm_of(7e153);
    logp_of(-7e153);
}

SCENE(overflows_in_the_last_slice)
{
    // A slice for each of two threads; the last row overflows, and the calling thread has the first slice.
    struct sigaction action = {};
    action.sa_handler = [](int) {
        const bool worker = syscall(SYS_gettid) != getpid();
        const char* const text = worker ? "on a worker\n" : "on the caller\n";
        [[maybe_unused]] const auto written = write(STDOUT_FILENO, text, strlen(text));
        _exit(9);
    };
    sigaction(SIGFPE, &action, nullptr);
    const Network net(small("sum").text());
    std::cout.flush();
    vemk_setpar(net, 4, 1250);
    Batch batch = random_batch(small("sum"), 2500, 2, 1);
    overflow_in_the_last_row(batch);
    results_of(entry_named(arguments.at(0)), net, batch);
}

TEST(WorkerTrap, CatchesWhatHappensInASliceOfAWorker)
{
    for (const Entry& entry : entries_where([](const Entry& e) { return e.runs_slices; })) {
        const child::Outcome outcome = child::play("overflows_in_the_last_slice", {entry.name});
        EXPECT_TRUE(outcome.exited_with(9)) << outcome.description();
        EXPECT_NE(std::string::npos, outcome.out.find("on a worker\n")) << outcome.description();
    }
}

namespace {

// What would trap inside a call.
void host_arithmetic()
{
    volatile double huge = 1e200, zero = 0, result = 0;
    result = huge * huge;
    EXPECT_EQ(INF, result);
    result = 1 / zero;
    EXPECT_EQ(INF, result);
    result = zero / zero;
    EXPECT_TRUE(std::isnan(result));
}

}  // namespace

TEST(HostArithmetic, DoesNotTrapOutsideACall)
{
    host_arithmetic();
    const Network net(small("sum_log_dnorm_fat").text());
    host_arithmetic();
    vemk_setpar(net, 4, 2);
    const Batch batch = random_batch(small("sum_log_dnorm_fat"), 2500, 2, 1);
    for (const Entry& entry : ENTRIES) {
        results_of(entry, net, batch);
        host_arithmetic();
#pragma omp parallel num_threads(4)
        host_arithmetic();
        std::thread(host_arithmetic).join();
    }
}

TEST(HostArithmetic, DoesNotTrapOnAnotherThreadDuringACall)
{
    const Network net(small("sum_log_dnorm_fat").text());
    vemk_setpar(net, 2, 2);
    const Batch batch = random_batch(small("sum_log_dnorm_fat"), 2500, 2, 1);
    std::atomic<bool> done{false};
    std::thread host([&] {
        while (!done) {
            host_arithmetic();
            std::this_thread::yield();
        }
    });
    for (int i = 0; i < 100; ++i) results_of(entry_named("vemk_g"), net, batch);
    done = true;
    host.join();
}
