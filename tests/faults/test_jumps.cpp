#include <cblas.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <unistd.h>

#include <csetjmp>
#include <csignal>
#include <fstream>
#include <iostream>
#include <string>
#include <thread>

#include "support/all_entries.h"
#include "support/child.h"

// A host that leaves a call by a jump out of its handler of SIGFPE. No destructor of the library runs then, and the calls
// that follow have to find everything in order.

namespace {

constexpr int JUMPS = 200;

thread_local sigjmp_buf before_the_call;

void jump_out(int)
{
    siglongjmp(before_the_call, 1);
}

// Whether the call is left by a jump.
bool is_left(VEMKNInfo* net, const AnyEntry& entry, const Request& overflowing)
{
    if (sigsetjmp(before_the_call, 1) != 0) return true;
    entry.run(net, overflowing);
    return false;
}

bool leaves_every_call(VEMKNInfo* net, const AnyEntry& entry, const Request& overflowing)
{
    for (int i = 0; i < JUMPS; ++i) {
        if (!is_left(net, entry, overflowing)) return false;
    }
    return true;
}

// The same with a sum of a bias and a product that overflows, and targets whose likelihood does. Not with a product that
// overflows itself: a jump out of OpenBLAS loses one of its buffers, of which it has 128.
Request overflowing(Request q)
{
    for (double& w : q.batch.w) w = 1.5e308;
    for (double& x : q.batch.x) x = 0.0;
    for (std::size_t row = 0; row < q.batch.nrows; ++row) q.batch.x[row * q.batch.xcols] = 1.0;
    for (double& y : q.batch.y) y = 1e200;
    return q;
}

// What a scene works with: SIGFPE's handler jumps, and the process ends by itself when it hangs.
struct Jumper {
    const plain::Network description = usual_network();
    const Network net{description.text()};
    const Request good, bad;

    Jumper(unsigned rows, unsigned seconds)
        : good{random_request(description, rows, 5, 2, 1)}, bad{overflowing(good)}
    {
        alarm(seconds);
        std::signal(SIGFPE, jump_out);
    }
};

// Jumps out of every entry point, each followed by a call of all of them with the right result.
bool survives()
{
    const plain::Network network = usual_network();
    const Network net(network.text());
    const Request good = random_request(network, 40, 5, 2, 1);
    const auto expected = all_bits(net, good);
    for (const AnyEntry& entry : ALL_ENTRIES) {
        if (!leaves_every_call(net, entry, overflowing(good)) || all_bits(net, good) != expected) {
            std::cout << "wrong after " << entry.name << "\n";
            return false;
        }
    }
    return true;
}

}  // namespace

SCENE(jumps_out_of_calls)
{
    alarm(240);
    std::signal(SIGFPE, jump_out);
    openblas_set_num_threads(2);
    std::vector<std::thread> threads;
    for (int i = std::stoi(arguments.at(0)); i-- > 0;) {
        threads.emplace_back([] {
            if (!survives()) std::_Exit(1);
        });
    }
    for (std::thread& thread : threads) thread.join();
    if (threads.empty() && !survives()) std::_Exit(1);
    std::cout << "BLAS has " << openblas_get_num_threads() << " threads" << std::endl;
    std::_Exit(openblas_get_num_threads() == 2 ? 0 : 1);
}

TEST(JumpFault, JumpsOutOfEveryEntryPoint_CallsGoOnWithTheSameBits)
{
    for (const char* threads : {"0", "4"}) {
        const child::Outcome outcome = child::play("jumps_out_of_calls", {threads});
        EXPECT_TRUE(outcome.exited_with(0)) << outcome.description();
    }
}

// The thread is gone: nothing of its call may stay behind.
SCENE(ends_threads_after_a_jump)
{
    const Jumper jumper(4, 60);
    for (int i = 0; i < 100; ++i) {
        std::thread([&] { is_left(jumper.net, any_entry_named("vemk_Hv"), jumper.bad); }).join();
    }
    Request other = jumper.good;
    other.nv = 1;
    std::_Exit(any_entry_named("vemk_Jv").run(jumper.net, other).status);
}

TEST(JumpFault, ThreadsThatEndAfterAJump_LeaveNothingBehind)
{
    const child::Outcome outcome = child::play("ends_threads_after_a_jump");
    EXPECT_TRUE(outcome.exited_with(0)) << outcome.description();
}

// A sanitizer is to see each array of a call, which then has memory of its own.
#if !defined(VEMKN_SANITIZED)
namespace {

void leave(const AnyEntry& entry, VEMKNInfo* net, const Call& overflowing, double* out)
{
    if (sigsetjmp(before_the_call, 1) == 0) run_into(entry, net, overflowing, out);
}

}  // namespace

SCENE(jumps_lose_no_memory)
{
    const Jumper jumper(40, 240);
    for (const AnyEntry& entry : ALL_ENTRIES) {
        const Call c = AnyEntry::call_for(jumper.bad);
        Numbers numbers(entry.sizes(c).all());
        const auto taken_after_jumps = [&](int jumps) {
            for (int i = 0; i < jumps; ++i) leave(entry, jumper.net, c, numbers.data());
            entry.run(jumper.net, jumper.good);
            return mallinfo2().uordblks;
        };
        const auto before = taken_after_jumps(1), after = taken_after_jumps(JUMPS);
        if (after > before) std::cout << entry.name << " loses " << after - before << " bytes\n";
    }
    std::cout << std::flush;
    std::_Exit(0);
}

// A thread of the host's team, which is then one of the library's.
SCENE(jumps_out_on_a_thread_of_the_pool)
{
    const Jumper jumper(40, 60);
    const Request good = random_request(jumper.description, 20'000, 5, 1, 1);
    const AnyEntry& entry = any_entry_named("vemk_g");
    const Call overflowing = AnyEntry::call_for(jumper.bad);
#pragma omp parallel num_threads(2)
    {
        Numbers numbers(entry.sizes(overflowing).all());
        leave(entry, jumper.net, overflowing, numbers.data());
    }
    const Network other(jumper.description.text());
    vemk_setpar(other, 2, 32);
    const auto taken_after = [&](int calls) {
        for (int i = 0; i < calls; ++i) entry.run(other, good);
        std::ifstream pages("/proc/self/statm");
        std::size_t all = 0;
        pages >> all;
        return all;
    };
    // A block that each call loses is larger than all that is allowed here.
#ifdef VEMKN_EMULATOR
    constexpr int CALLS = 50;
#else
    constexpr int CALLS = 500;
#endif
    const std::size_t before = taken_after(10), after = taken_after(CALLS);
    std::cout << (after > before + 1000 ? "loses memory" : "keeps memory") << std::endl;
    std::_Exit(0);
}

TEST(JumpFault, AJumpOnAThreadThatBecomesAWorker_LosesNoMemory)
{
    const child::Outcome outcome = child::play("jumps_out_on_a_thread_of_the_pool");
    EXPECT_TRUE(outcome.exited_with(0)) << outcome.description();
    EXPECT_NE(std::string::npos, outcome.out.find("keeps memory")) << outcome.description();
}

TEST(JumpFault, JumpsOutOfEveryEntryPoint_TheNextCallGivesTheirMemoryBack)
{
    const child::Outcome outcome = child::play("jumps_lose_no_memory");
    EXPECT_TRUE(outcome.exited_with(0)) << outcome.description();
    EXPECT_EQ(std::string::npos, outcome.out.find("loses")) << outcome.description();
}
#endif
