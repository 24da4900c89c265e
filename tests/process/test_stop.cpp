#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>

#include "support/calls.h"
#include "support/child.h"
#include "support/fp_state.h"

// More input columns than the network takes: two lines, and the end of the process.

namespace {

const std::string BANNER = "VEMKN " VEMKN_VERSION " (C) 2026 the VEMKN developers\n";

void says_how_the_end_looks()
{
    std::cout << "traps at exit: " << fegetexcept() << "\n";
}

class TooManyColumns : public testing::TestWithParam<Entry> {
protected:
    // Calls the entry point in a process of its own.
    void expect_stop(const std::string& text, unsigned nrows, unsigned xcols, unsigned limit) const
    {
        const child::Outcome outcome = child::play(
            "calls_with", {GetParam().name, text, std::to_string(nrows), std::to_string(xcols)});
        EXPECT_TRUE(outcome.exited_with(3)) << outcome.description();
        EXPECT_EQ("too many predicates: " + std::to_string(xcols) + " > " + std::to_string(limit) +
                      "\nstop: too many predicates\n",
                  outcome.err);
        EXPECT_EQ(BANNER + "traps at exit: 0\n", outcome.out);
    }
};

class TooManyColumnsOfNoRows : public TooManyColumns {};

}  // namespace

SCENE(calls_with)
{
    const std::string text = arguments.at(1);
    VEMKNInfo* const net = initVEMKNet(text.data(), static_cast<int>(text.size()));
    static Numbers w, x, y, array;
    w.resize(vemk_numel(net));
    const auto nrows = static_cast<unsigned>(std::stoul(arguments.at(2)));
    const auto xcols = static_cast<unsigned>(std::stoul(arguments.at(3)));
    const unsigned ycols = vemk_numout(net);
    x.resize(std::size_t{nrows} * xcols);
    y.resize(std::size_t{nrows} * ycols);
    array.resize(1 + w.size() + y.size());
    std::atexit(says_how_the_end_looks);
    entry_named(arguments.at(0))
        .run(net,
             {.w = w.data(),
              .nw = static_cast<unsigned>(w.size()),
              .x = x.data(),
              .y = y.data(),
              .nrows = nrows,
              .xcols = xcols,
              .ycols = ycols,
              .value = array.data(),
              .array = array.data() + 1});
    std::cout << "returned\n";
    releaseVEMKNet(net);
}

TEST_P(TooManyColumns, ThanInputsEndTheProcess)
{
    expect_stop("4 2 2 1 8 5 3 softplus sum", 3, 5, 4);
    expect_stop("4 2 2 1 8 4 3 softplus sum", 3, 5, 4);
    expect_stop("4 2 2 1 8 4 3 softplus sum", 1, 100, 4);
}

TEST_P(TooManyColumns, ThanRowsOfTheFirstMatrixEndTheProcess)
{
    expect_stop("9 2 2 1 8 3 4 softplus sum", 3, 4, 3);
    expect_stop("9 2 2 1 8 0 4 softplus sum", 3, 1, 0);
}

TEST_P(TooManyColumns, AreCountedAgainstTheInputsFirst)
{
    expect_stop("4 2 2 1 8 3 4 softplus sum", 3, 5, 4);
}

INSTANTIATE_TEST_SUITE_P(Entries, TooManyColumns, testing::ValuesIn(ENTRIES), name_of);

TEST_P(TooManyColumnsOfNoRows, EndTheProcessToo)
{
    expect_stop("4 2 2 1 8 5 3 softplus sum", 0, 5, 4);
}

INSTANTIATE_TEST_SUITE_P(Entries,
                         TooManyColumnsOfNoRows,
                         testing::ValuesIn(entries_where([](const Entry& e) {
                             return e.takes_empty;
                         })),
                         name_of);

TEST(AsManyColumnsAsInputs, AreFine)
{
    const child::Outcome outcome =
        child::play("calls_with", {"vemk_compute", "4 2 2 1 8 4 3 softplus sum", "3", "4"});
    EXPECT_TRUE(outcome.exited_with(0)) << outcome.description();
    EXPECT_EQ(BANNER + "returned\ntraps at exit: 0\n", outcome.out);
}
