#include <gtest/gtest.h>

#include <array>

#include "support/all_entries.h"
#include "support/child.h"
#include "support/size.h"

// The fatal exit stands before any team: ending a process from a worker would crash now and then, so it takes many runs
// to see it.

// entry, rows, threads: one column too many, slices of eight rows
SCENE(has_one_column_too_many)
{
    const Network net(usual_network().text());
    vemk_setpar(net, static_cast<unsigned>(std::stoul(arguments.at(2))), 8);
    const auto nrows = static_cast<unsigned>(std::stoul(arguments.at(1)));
    any_entry_named(arguments.at(0)).run(net, random_request(usual_network(), nrows, 6, 2, 1));
}

namespace {

// Those that take input rows, in turn.
const AnyEntry& entry_number(int i)
{
    static const std::array names = {"vemk_compute",
                                     "vemk_residual",
                                     "vemk_obj",
                                     "vemk_objv",
                                     "vemk_g",
                                     "vemk_Hv",
                                     "vemk_Jv",
                                     "vemk_vJ",
                                     "vemk_vJ_vec"};
    return any_entry_named(names[static_cast<std::size_t>(i) % names.size()]);
}

void expect_stop_every_time(const char* nrows, const char* threads)
{
    for (int run = 0; run < unless_sanitized(300); ++run) {
        const AnyEntry& entry = entry_number(run);
        const child::Outcome outcome =
            child::play("has_one_column_too_many", {entry.name, nrows, threads});
        ASSERT_TRUE(outcome.exited_with(3))
            << entry.name << ", run " << run << outcome.description();
        ASSERT_EQ("too many predicates: 6 > 5\nstop: too many predicates\n", outcome.err)
            << entry.name << ", run " << run;
    }
}

}  // namespace

TEST(WidthFault, TooManyColumnsInOneSliceWithOneThread_OneMessageAndStatus3EveryTime)
{
    expect_stop_every_time("5", "1");
}

TEST(WidthFault, TooManyColumnsInOneSliceWithFourThreads_OneMessageAndStatus3EveryTime)
{
    expect_stop_every_time("5", "4");
}

TEST(WidthFault, TooManyColumnsInManySlicesWithOneThread_OneMessageAndStatus3EveryTime)
{
    expect_stop_every_time("100", "1");
}

TEST(WidthFault, TooManyColumnsInManySlicesWithFourThreads_OneMessageAndStatus3EveryTime)
{
    expect_stop_every_time("100", "4");
}
