#include <atomic>
#include <new>

#include "hpp/problem.h"
#include "support/allocations.h"
#include "support/fp_state.h"

// What is left of the traps when memory lacks in a call of the C++ header.

namespace {

const Problem problem;

// How often a call has still to get memory before it does not.
std::atomic<int> left;

void fail()
{
    if (left-- == 0) throw std::bad_alloc();
}

struct Call {
    const char* name;
    void (*run)(const vemkn::Network& net);
};

void product_jacobian(const vemkn::Network& net, std::size_t cotangents)
{
    net.product_jacobian(
        problem.w, Numbers(cotangents * problem.results(), 0.5), problem.x, problem.y);
}

const Call MAKING{"Network", [](const vemkn::Network&) { problem.network(); }};

const Call COMPUTING[] = {
    {"compute", [](const vemkn::Network& net) { net.compute(problem.w, problem.x); }},
    {"residual", [](const vemkn::Network& net) { net.residual(problem.w, problem.x, problem.y); }},
    {"objective",
     [](const vemkn::Network& net) { net.objective(problem.w, problem.x, problem.y); }},
    {"objective_each",
     [](const vemkn::Network& net) { net.objective_each(problem.w, problem.x, problem.y); }},
    {"value_and_gradient",
     [](const vemkn::Network& net) { net.value_and_gradient(problem.w, problem.x, problem.y); }},
    {"hessian_product",
     [](const vemkn::Network& net) {
         net.hessian_product(problem.w, problem.w, problem.x, problem.y);
     }},
    {"jacobian_product",
     [](const vemkn::Network& net) {
         net.jacobian_product(problem.w, problem.w, problem.x, problem.y);
     }},
    {"product_jacobian", [](const vemkn::Network& net) { product_jacobian(net, 1); }},
    {"product_jacobian of two", [](const vemkn::Network& net) { product_jacobian(net, 2); }},
};

// Whether the call met lack of memory at its allocation of that number.
bool lacks_memory(const Call& call, const vemkn::Network& net, int allocation)
{
    left = allocation;
    allocations::watch(fail);
    bool caught = false;
    try {
        call.run(net);
    } catch (const std::bad_alloc&) {
        caught = true;
    }
    allocations::ignore();
    EXPECT_EQ(left < 0, caught) << call.name << ", allocation " << allocation;
    return caught;
}

// The traps after the call, once for each of its allocations, which fails. Before it they are as given; without any, the
// flags of all are pending.
std::vector<int> traps_left(const Call& call, bool quiet, int traps)
{
    vemkn::Network net = problem.network();
    net.set_quiet(quiet);
    net.set_threads(2);
    net.set_batch(2);
    call.run(net);  // the banner and the team exist
    std::vector<int> left_armed;
    for (bool lacked = true; lacked;) {
        if (traps == 0) leave_stale_flags();
        feenableexcept(traps);
        lacked = lacks_memory(call, net, static_cast<int>(left_armed.size()));
        if (lacked) left_armed.push_back(fegetexcept());
        fedisableexcept(FE_ALL_EXCEPT);
        std::feclearexcept(FE_ALL_EXCEPT);
    }
    EXPECT_FALSE(left_armed.empty()) << call.name;
    return left_armed;
}

}  // namespace

TEST(HppMemory, LeavesNoTrapArmedWhereItLacks)
{
    for (const int armed : traps_left(MAKING, false, 0)) EXPECT_EQ(0, armed);
    for (const Call& call : COMPUTING) {
        for (const bool quiet : {false, true}) {
            for (const int armed : traps_left(call, quiet, 0)) EXPECT_EQ(0, armed) << call.name;
        }
    }
}

TEST(HppMemory, ArmsNoTrapThatTheHostHadNotArmed)
{
    const int armed_before = armed_by_the_host(FE_DIVBYZERO);  // none where the processor has none
    fedisableexcept(FE_ALL_EXCEPT);
    for (const int armed : traps_left(MAKING, false, FE_DIVBYZERO)) {
        EXPECT_EQ(0, armed & ~FE_DIVBYZERO);
    }
    for (const Call& call : COMPUTING) {
        for (const bool quiet : {false, true}) {
            for (const int armed : traps_left(call, quiet, FE_DIVBYZERO)) {
                EXPECT_EQ(armed_before, armed) << call.name;
            }
        }
    }
}
