#include <gtest/gtest.h>
#include <omp.h>

#include <cfenv>
#include <iostream>

#include "support/all_entries.h"
#include "support/child.h"
#include "support/fp_state.h"

// Hosts with a floating-point environment of their own: other traps, another rounding, subnormals taken for zero.

namespace {

#ifdef __x86_64__
constexpr unsigned ALL_MASKS = 0x1f80;
#endif

// Traps of subnormal operands too.
void arm_everything()
{
    feenableexcept(FE_ALL_EXCEPT);
#ifdef __x86_64__
    __builtin_ia32_ldmxcsr(__builtin_ia32_stmxcsr() & ~ALL_MASKS);
#endif
}

void disarm_everything()
{
    fedisableexcept(FE_ALL_EXCEPT);
#ifdef __x86_64__
    __builtin_ia32_ldmxcsr(ALL_MASKS);
#endif
}

Request with_subnormal_numbers()
{
    Request q = random_request(usual_network(), 40, 5, 2, 1);
    for (std::size_t i = 0; i < q.batch.x.size(); i += 3) q.batch.x[i] = 1e-310;
    for (std::size_t i = 0; i < q.batch.w.size(); i += 5) q.batch.w[i] = -1e-309;
    return q;
}

void print_bits(VEMKNInfo* net, const Request& q)
{
    for (const auto& bits : all_bits(net, q)) {
        std::uint64_t hash = 0;
        for (const std::uint64_t b : bits) hash = hash * 1099511628211u + b;
        std::cout << hash << "\n";
    }
}

}  // namespace

SCENE(calls_quietly_with_every_trap_armed)
{
    const Network net(usual_network().text());
    vemk_quiet(net, 1);
    vemk_setpar(net, 3, 4);
    const Request q = with_subnormal_numbers();
    const auto expected = all_bits(net, q);
    Call c = q.batch.call();
    c.v = q.v.data();
    c.nv = q.nv;
    for (const AnyEntry& entry : ALL_ENTRIES) {
        Numbers numbers = entry.run(net, q).numbers;
        std::feclearexcept(FE_ALL_EXCEPT);
        arm_everything();
        const FpState before = FpState::now();
        run_into(entry, net, c, numbers.data());
        const bool as_before = before == FpState::now();
        disarm_everything();
        if (!as_before) std::cout << entry.name << " changed the environment\n";
    }
    if (all_bits(net, q) != expected) std::cout << "other bits\n";
    std::cout << "done" << std::endl;
}

TEST(HostEnvironmentFault, EveryTrapArmedInQuietMode_NoSignalAndTheTrapsAsBefore)
{
    const child::Outcome outcome = child::play("calls_quietly_with_every_trap_armed");
    ASSERT_TRUE(outcome.exited_with(0)) << outcome.description();
    EXPECT_EQ(std::string::npos, outcome.out.find("changed")) << outcome.out;
    EXPECT_EQ(std::string::npos, outcome.out.find("other bits")) << outcome.out;
    EXPECT_NE(std::string::npos, outcome.out.find("done")) << outcome.out;
}

SCENE(rounds_upwards_and_flushes)
{
    const bool pool_first = arguments.at(0) == "pool first";
    const Network net(usual_network().text());
    vemk_setpar(net, 3, 4);
    const Request q = with_subnormal_numbers();
    if (pool_first) all_bits(net, q);
    std::fesetround(FE_UPWARD);
    flush_subnormals(true);
    if (arguments.at(0) == "one thread") omp_set_dynamic(0), omp_set_max_active_levels(0);
    print_bits(net, q);
    std::fesetround(FE_TONEAREST);
    flush_subnormals(false);
    if (!pool_first) return;
#pragma omp parallel num_threads(2)
    {
        if (std::fegetround() != FE_TONEAREST || flushes_subnormals()) {
#pragma omp critical
            std::cout << "a worker kept what was the caller's\n";
        }
    }
}

TEST(HostEnvironmentFault, RoundingAndFlushToZeroOfTheHost_HoldOnEveryThread)
{
    const child::Outcome one = child::play("rounds_upwards_and_flushes", {"one thread"});
    ASSERT_TRUE(one.exited_with(0)) << one.description();
    for (const char* pool : {"pool first", "pool later"}) {
        const child::Outcome outcome = child::play("rounds_upwards_and_flushes", {pool});
        ASSERT_TRUE(outcome.exited_with(0)) << outcome.description();
        EXPECT_EQ(one.out, outcome.out) << pool;
    }
}
