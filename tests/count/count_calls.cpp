// Steady calls on two networks, one thread, for callgrind to count: a dump of its counters after each case, the case in
// the dump's description. Called with an argument it prints what the counts belong to instead.

#include <cblas.h>
#include <gnu/libc-version.h>
#include <valgrind/callgrind.h>

#include <cstdio>
#include <string>

#include "entries.h"

namespace {

constexpr unsigned CALLS = 10;

void count(const bench::Shape& shape, const char* name, bench::Call* call, unsigned tangents)
{
    const bench::Problem p(shape, "softplus", "sum_log_dnorm_fat");
    vemk_setpar(p.net, 1, 32);
    const std::vector<double> in = bench::numbers_in(p, tangents);
    std::vector<double> out = bench::numbers_out(p, tangents);
    // what is made once, and the memory that later calls find again
    call(p, tangents, in, out);
    CALLGRIND_ZERO_STATS;
    for (unsigned i = 0; i < CALLS; ++i) call(p, tangents, in, out);
    const std::string label = std::string(name) + '/' + shape.name + '/' +
                              std::to_string(shape.rows) + " calls " + std::to_string(CALLS);
    CALLGRIND_DUMP_STATS_AT(label.c_str());
}

}  // namespace

int main(int argc, char**)
{
    if (argc > 1) {
        std::printf("%s; glibc %s; compiler %s; %s build\n",
                    openblas_get_config(),
                    gnu_get_libc_version(),
                    __VERSION__,
                    VEMKN_BUILD_TYPE);
        return 0;
    }
    for (std::size_t i = 0; i < 2; ++i) {
        const bench::Shape& shape = bench::shapes()[i];
        count(shape, "g", bench::g, 0);
        count(shape, "Hv1", bench::Hv, 1);
    }
    return 0;
}
