#include <cstdio>

#include "eval/team.h"

// A race that is meant to be one: two threads of a team add to the same variable. ThreadSanitizer has to find it, else
// its silence about everything else is worth nothing.

int main()
{
    struct Local {};

    long sum = 0;
    const VEMKN::TeamPermit team(1000, 4);
    VEMKN::for_each_item<Local>(
        1000, team, [&](Local&, std::size_t i) { sum += static_cast<long>(i); });
    std::printf("%ld\n", sum);
    return 0;
}
