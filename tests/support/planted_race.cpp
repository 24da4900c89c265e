#include <cstdio>

#include "eval/shares.h"

// A race that is meant to be one: two threads of a team add to the same variable. ThreadSanitizer has to find it, else
// its silence about everything else is worth nothing.

int main()
{
    struct Local {};

    long sum = 0;
    VEMKN::for_each_share(
        VEMKN::Shares(1000, 4),
        4,
        [] { return Local(); },
        [](Local&) {},
        [&](Local&, std::size_t i) { sum += static_cast<long>(i); },
        [](const Local&) {});
    std::printf("%ld\n", sum);
    return 0;
}
