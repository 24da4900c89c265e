#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <iostream>
#include <thread>

#include "support/all_entries.h"
#include "support/child.h"

// The end of the process: by too many input columns or by the host, while other threads compute, while a host's exit
// handlers call, and with a stream that the host has made to buffer.

namespace {

constexpr int TRIES = 20;

// Calls the entry point with more columns than the network takes.
void call_too_wide(const AnyEntry& entry, VEMKNInfo* net)
{
    Request wide = random_request(usual_network(), 2, 5, 2, 1);
    wide.batch.xcols = 6;
    wide.batch.x.resize(12);
    entry.run(net, wide);
}

void compute_without_end(VEMKNInfo* net)
{
    const Request q = random_request(usual_network(), 200, 5, 2, 1);
    for (;;) any_entry_named("vemk_g").run(net, q);
}

VEMKNInfo* new_handle()
{
    const std::string text = usual_network().text();
    return initVEMKNet(text.data(), static_cast<int>(text.size()));
}

// An exit handler that makes a handle of its own and calls with another number of tangents.
void calls_at_exit()
{
    VEMKNInfo* const net = new_handle();
    const Request q = random_request(usual_network(), 40, 5, 3, 1);
    for (const AnyEntry& entry : ALL_ENTRIES) {
        if (entry.run(net, q).status != 0) std::cout << entry.name << " failed\n";
    }
    releaseVEMKNet(net);
    std::cout << "the exit handler came to its end" << std::endl;
}

}  // namespace

SCENE(calls_too_wide_with_a_calling_exit_handler)
{
    alarm(20);
    std::atexit(calls_at_exit);
    call_too_wide(any_entry_named(arguments.at(0)), new_handle());
}

TEST(EndFault, ExitHandlersThatCall_NeverWaitForTheCallThatEnds)
{
    for (const AnyEntry& entry : ALL_ENTRIES) {
        if (entry.is_norm_alone()) continue;
        const child::Outcome outcome =
            child::play("calls_too_wide_with_a_calling_exit_handler", {entry.name});
        EXPECT_TRUE(outcome.exited_with(3)) << entry.name << outcome.description();
        EXPECT_NE(std::string::npos, outcome.out.find("handler came to its end")) << entry.name;
        EXPECT_EQ(std::string::npos, outcome.out.find("failed")) << outcome.out;
    }
}

SCENE(ends_while_others_compute)
{
    alarm(20);
    VEMKNInfo* const net = new_handle();
    std::thread(compute_without_end, net).detach();
    std::thread(compute_without_end, net).detach();
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    if (arguments.at(0) == "too wide") call_too_wide(any_entry_named("vemk_g"), net);
    std::exit(0);
}

TEST(EndFault, TooManyColumnsWhileOthersCompute_ExitStatusThree)
{
    for (int i = 0; i < TRIES; ++i) {
        const child::Outcome outcome = child::play("ends_while_others_compute", {"too wide"});
        EXPECT_TRUE(outcome.exited_with(3)) << outcome.description();
    }
}

TEST(EndFault, MainReturnsWhileOthersCompute_ExitStatusOfMain)
{
    for (int i = 0; i < TRIES; ++i) {
        const child::Outcome outcome = child::play("ends_while_others_compute", {"main returns"});
        EXPECT_TRUE(outcome.exited_with(0)) << outcome.description();
    }
}

// The host's pool, a static object, joins its thread while the process ends.
SCENE(joins_at_exit_a_thread_that_calls)
{
    alarm(20);
    static std::atomic<bool> done{false};
    static VEMKNInfo* const net = new_handle();
    static std::thread worker([] {
        const Request q = random_request(usual_network(), 200, 5, 2, 1);
        while (!done) any_entry_named("vemk_g").run(net, q);
    });
    std::atexit([] {
        done = true;
        worker.join();
    });
    call_too_wide(any_entry_named("vemk_g"), net);
}

TEST(EndFault, ExitHandlerJoinsAThreadThatCalls_NeverHangs)
{
    const child::Outcome outcome = child::play("joins_at_exit_a_thread_that_calls");
    EXPECT_TRUE(outcome.exited_with(3)) << outcome.description();
}

SCENE(loses_no_line)
{
    std::ios::sync_with_stdio(false);
    const Network net("2 1 2 1 8 2 3 softplus sum");
    vemk_getweights(net, Numbers(50).data(), 50);  // refused
    if (arguments.at(0) == "trap") {
        // The objective of nothing: a line, and a division by zero.
        vemk_Hv(net, nullptr, 13, nullptr, 2, nullptr, nullptr, 0, 2, 1, nullptr, nullptr, nullptr);
    }
    if (arguments.at(0) == "abort") std::abort();
    std::_Exit(0);
}

TEST(EndFault, LinesOnStandardErrorAreNeverLost_WhateverEndsTheProcess)
{
    for (const char* end : {"trap", "abort", "_Exit"}) {
        const child::Outcome outcome = child::play("loses_no_line", {end});
        EXPECT_EQ(0u, outcome.err.find("vemk_getweights: refused: ")) << outcome.description();
        EXPECT_EQ(end == std::string("trap"),
                  outcome.err.find("POLE_DIVISION_C") != std::string::npos);
    }
}
