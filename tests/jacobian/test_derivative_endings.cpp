#include <csignal>
#include <iostream>

#include "jacobian/derivative_calls.h"
#include "support/child.h"

// How derivative products end a process.

namespace {

// The entry point of that name, on weights, targets and tangents of ones.
int run_entry(const std::string& name,
              VEMKNInfo* net,
              const double* x,
              unsigned nrows,
              unsigned xcols,
              unsigned nv)
{
    const auto nw = static_cast<unsigned>(vemk_numel(net));
    const unsigned ycols = vemk_numout(net);
    const Numbers ones(1000, 1.0);
    Numbers out(1000);
    if (name == "vemk_Hv") {
        return vemk_Hv(net,
                       ones.data(),
                       nw,
                       ones.data(),
                       nv,
                       x,
                       ones.data(),
                       nrows,
                       xcols,
                       ycols,
                       nullptr,
                       nullptr,
                       out.data());
    }
    if (name == "vemk_Jv") {
        return vemk_Jv(net,
                       ones.data(),
                       nw,
                       ones.data(),
                       nv,
                       x,
                       ones.data(),
                       nrows,
                       xcols,
                       ycols,
                       nullptr,
                       out.data());
    }
    if (name == "vemk_vJ") {
        return vemk_vJ(net,
                       ones.data(),
                       nw,
                       ones.data(),
                       0,
                       x,
                       ones.data(),
                       nrows,
                       xcols,
                       ycols,
                       nullptr,
                       out.data());
    }
    return vemk_vJ_vec(net,
                       ones.data(),
                       nw,
                       ones.data(),
                       nv,
                       x,
                       ones.data(),
                       nrows,
                       xcols,
                       ycols,
                       nullptr,
                       out.data());
}

constexpr const char* ENTRIES[] = {"vemk_Hv", "vemk_Jv", "vemk_vJ", "vemk_vJ_vec"};

}  // namespace

// description, entry, rows, columns, threads
SCENE(too_many_columns)
{
    const Network net(arguments.at(0));
    const auto nrows = static_cast<unsigned>(std::stoul(arguments.at(2)));
    const auto xcols = static_cast<unsigned>(std::stoul(arguments.at(3)));
    vemk_setpar(net, static_cast<unsigned>(std::stoul(arguments.at(4))), 2);
    const Numbers x(std::size_t{nrows} * xcols, 1.0);
    run_entry(arguments.at(1), net, x.data(), nrows, xcols, 2);
}

TEST(WidthStop, EndsTheProcessWithTwoLinesAndStatusThree)
{
    for (const char* entry : ENTRIES) {
        SCOPED_TRACE(entry);
        // One slice, several slices, no rows at all.
        for (const char* nrows : {"1", "9", "0"}) {
            for (const char* threads : {"1", "2"}) {
                const child::Outcome outcome = child::play(
                    "too_many_columns", {"2 1 2 1 8 2 3 atan sum", entry, nrows, "3", threads});
                EXPECT_TRUE(outcome.exited_with(3)) << outcome.description();
                EXPECT_EQ("too many predicates: 3 > 2\nstop: too many predicates\n", outcome.err);
            }
        }
    }
}

TEST(WidthStop, LooksAtTheFirstLayerAfterTheInputs)
{
    for (const char* entry : ENTRIES) {
        SCOPED_TRACE(entry);
        // Five inputs announced, a first layer of two.
        const child::Outcome narrow =
            child::play("too_many_columns", {"5 1 2 1 8 2 3 atan sum", entry, "4", "3", "1"});
        EXPECT_TRUE(narrow.exited_with(3)) << narrow.description();
        EXPECT_EQ("too many predicates: 3 > 2\nstop: too many predicates\n", narrow.err);
        // Both are exceeded: the inputs come first.
        const child::Outcome both =
            child::play("too_many_columns", {"5 1 2 1 8 2 3 atan sum", entry, "4", "6", "1"});
        EXPECT_TRUE(both.exited_with(3)) << both.description();
        EXPECT_EQ("too many predicates: 6 > 5\nstop: too many predicates\n", both.err);
    }
}

// entry, number of tangents or cotangents, what is infinite: a linear network of positive weights
SCENE(infinity)
{
    const Network net("2 1 2 1 8 2 1 id sum");
    const auto n = static_cast<unsigned>(std::stoul(arguments.at(1)));
    double x[] = {1, 1};
    double w[] = {1, 1, 1, 1, 1};
    // The bias of the output.
    (arguments.at(2) == "input" ? x[0] : w[3]) = INF;
    const Numbers ones(10, 1.0);
    Numbers out(10);
    int result = 0;
    if (arguments.at(0) == "vemk_Hv") {
        result = vemk_Hv(
            net, w, 5, ones.data(), n, x, ones.data(), 1, 2, 1, nullptr, nullptr, out.data());
    } else if (arguments.at(0) == "vemk_Jv") {
        result = vemk_Jv(net, w, 5, ones.data(), n, x, ones.data(), 1, 2, 1, nullptr, out.data());
    } else if (arguments.at(0) == "vemk_vJ") {
        result = vemk_vJ(net, w, 5, ones.data(), 0, x, ones.data(), 1, 2, 1, nullptr, out.data());
    } else {
        result =
            vemk_vJ_vec(net, w, 5, ones.data(), n, x, ones.data(), 1, 2, 1, nullptr, out.data());
    }
    std::cout << "came back with " << result << std::endl;
}

TEST(Infinity, TrapsWhereItsTangentIsFormed)
{
    // Nothing else here makes a NaN: the output and its derivatives along positive tangents are infinite or plain
    // numbers. But the tangents of inputs and weights begin as inputs and weights times 0.0.
    for (const char* entry : {"vemk_Hv", "vemk_Jv"}) {
        for (const char* what : {"input", "weight"}) {
            const child::Outcome outcome = child::play("infinity", {entry, "1", what});
            EXPECT_TRUE(outcome.killed_by(SIGFPE)) << what << ", " << outcome.description();
        }
    }
}

TEST(Infinity, PassesWhereNoTangentIsFormed)
{
    const std::pair<const char*, const char*> calls[] = {
        {"vemk_Hv", "0"}, {"vemk_Jv", "0"}, {"vemk_vJ", "1"}, {"vemk_vJ_vec", "2"}};
    for (const auto& [entry, n] : calls) {
        for (const char* what : {"input", "weight"}) {
            const child::Outcome outcome = child::play("infinity", {entry, n, what});
            EXPECT_TRUE(outcome.exited_with(0))
                << entry << ", " << what << ", " << outcome.description();
            EXPECT_NE(std::string::npos, outcome.out.find("came back with 0\n")) << outcome.out;
        }
    }
}

// entry, threads: a residual whose square overflows, in the last slice of several
SCENE(overflow_in_a_slice)
{
    const Network net("1 1 2 1 8 1 1 id sum_log_dnorm_fat");
    vemk_setpar(net, static_cast<unsigned>(std::stoul(arguments.at(1))), 1);
    const Numbers x = {1, 1, 1, 1e200};
    run_entry(arguments.at(0), net, x.data(), 4, 1, 1);
}

TEST(Overflow, TrapsOnEveryThread)
{
    for (const char* entry : ENTRIES) {
        SCOPED_TRACE(entry);
        for (const char* threads : {"1", "2", "4"}) {
            const child::Outcome outcome = child::play("overflow_in_a_slice", {entry, threads});
            EXPECT_TRUE(outcome.killed_by(SIGFPE)) << outcome.description();
        }
    }
}
