#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <string>

#include "support/child.h"
#include "support/network.h"
#include "vemkn_errors.h"

// The discontinuity handler: without one, with one, and with reports from several threads of the host at once.

namespace {

constexpr const char* REPORT =
    "ad.h:269: POLE_DIVISION_C: non differentiable function division at point (0, 0)\n";
constexpr const char* REPORT_OF_ONE =
    "ad.h:269: POLE_DIVISION_C: non differentiable function division at point (1, 0)\n";

constexpr int THREADS = 4;
constexpr int CALLS = 25;

// Straight to the descriptor: what a stream buffers is lost when a signal ends the process.
void say(const std::string& text)
{
    [[maybe_unused]] const ssize_t n = write(STDERR_FILENO, text.data(), text.size());
}

// The objective of nothing divides by zero, and so does its seed.
int empty_Hv(VEMKNInfo* net)
{
    return vemk_Hv(
        net, nullptr, 13, nullptr, 2, nullptr, nullptr, 0, 2, 1, nullptr, nullptr, nullptr);
}

struct Counter : yafad::ErrorHandler {
    std::atomic<int> as_documented{0}, others{0};

    void report(yafad::Error& error) override
    {
        const std::string said = error.message + "\n";
        ++(said == REPORT || said == REPORT_OF_ONE ? as_documented : others);
    }
};

std::size_t lines(const std::string& text, const std::string& line)
{
    std::size_t found = 0;
    for (std::size_t at = text.find(line); at != std::string::npos; at = text.find(line, at + 1))
        ++found;
    return found;
}

// Returns how many calls gave 1.
int quiet_calls_from_workers()
{
    const Network net("2 1 2 1 8 2 3 softplus sum");
    vemk_quiet(net, 1);
    std::atomic<int> reported{0};
#pragma omp parallel num_threads(THREADS)
    for (int i = 0; i < CALLS; ++i) reported += empty_Hv(net);
    return reported;
}

}  // namespace

// "set" or not
SCENE(divides_by_nothing_with_traps_armed)
{
    static Counter counter;
    if (arguments.at(0) == "set") yafad::ErrorHandler::getHandler() = &counter;
    struct sigaction action = {};
    action.sa_handler = [](int) {
        _exit(counter.as_documented == 1 && counter.others == 0 ? 5 : 6);
    };
    sigaction(SIGFPE, &action, nullptr);
    const Network net("2 1 2 1 8 2 3 softplus sum");
    empty_Hv(net);
    say("came back\n");
}

TEST(HandlerFault, HandlerUnset_TheMessageAndThenTheTrap)
{
    const child::Outcome outcome = child::play("divides_by_nothing_with_traps_armed", {"unset"});
    EXPECT_TRUE(outcome.exited_with(6)) << outcome.description();
    EXPECT_EQ(REPORT, outcome.err);
}

TEST(HandlerFault, HandlerSet_OneReportAndThenTheTrap)
{
    const child::Outcome outcome = child::play("divides_by_nothing_with_traps_armed", {"set"});
    EXPECT_TRUE(outcome.exited_with(5)) << outcome.description();
    EXPECT_EQ("", outcome.err);
}

SCENE(divides_by_nothing_on_workers)
{
    Counter counter;
    if (arguments.at(0) == "set") yafad::ErrorHandler::getHandler() = &counter;
    const int reported = quiet_calls_from_workers();
    yafad::ErrorHandler::getHandler() = nullptr;
    const int reports = arguments.at(0) == "set" ? 2 * THREADS * CALLS : 0;
    const bool good =
        reported == THREADS * CALLS && counter.as_documented == reports && counter.others == 0;
    _exit(good ? 0 : 1);
}

TEST(HandlerFault, HandlerCalledFromWorkers_EveryReportArrives)
{
    const child::Outcome outcome = child::play("divides_by_nothing_on_workers", {"set"});
    EXPECT_TRUE(outcome.exited_with(0)) << outcome.description();
    EXPECT_EQ("", outcome.err);
}

TEST(HandlerFault, NoHandlerOnWorkers_EveryLineIsWritten)
{
    const child::Outcome outcome = child::play("divides_by_nothing_on_workers", {"unset"});
    EXPECT_TRUE(outcome.exited_with(0)) << outcome.description();
    EXPECT_EQ(THREADS * CALLS, static_cast<int>(lines(outcome.err, REPORT)));
    EXPECT_EQ(THREADS * CALLS, static_cast<int>(lines(outcome.err, REPORT_OF_ONE)));
}
