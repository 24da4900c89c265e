// Steady calls of every entry point, one thread, for callgrind to count: a dump of its counters after each case, the case in
// the dump's description with what it takes from operator new. Called with an argument it prints what the counts belong to instead.

#include <cblas.h>
#include <gnu/libc-version.h>
#include <valgrind/callgrind.h>

#include <cstdio>
#include <cstdlib>
#include <new>
#include <sstream>
#include <string>
#include <string_view>

#include "entries.h"

namespace {

std::size_t allocations = 0, bytes = 0;

}  // namespace

// The library's too.
void* operator new(std::size_t size)
{
    ++allocations;
    bytes += size;
    if (void* const memory = std::malloc(size)) return memory;
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}

namespace {

constexpr unsigned CALLS = 10;

void count(const bench::Shape& shape, const bench::Entry& entry)
{
    const unsigned tangents = entry.tangents;
    const bench::Problem p(shape, "softplus", "sum_log_dnorm_fat");
    vemk_setpar(p.net, 1, 32);
    const std::vector<double> in = bench::numbers_in(p, tangents);
    std::vector<double> out = bench::numbers_out(p, tangents);
    // what is made once, and the memory that later calls find again
    entry.call(p, tangents, in, out);
    allocations = bytes = 0;
    CALLGRIND_ZERO_STATS;
    for (unsigned i = 0; i < CALLS; ++i) entry.call(p, tangents, in, out);
    CALLGRIND_TOGGLE_COLLECT;
    std::ostringstream label;
    label << entry.name << '/' << shape.name << '/' << shape.rows << " calls " << CALLS
          << " allocations " << allocations << " bytes " << bytes;
    const std::string text = label.str();
    CALLGRIND_DUMP_STATS_AT(text.c_str());
    CALLGRIND_TOGGLE_COLLECT;
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
    const bench::Shape tiny{"2-5-1", {2, 5, 1}, 1}, small = bench::shapes()[0];
    const bench::Shape usual{"8-16-16-1", {8, 16, 16, 1}, 100};
    for (const bench::Shape& shape : {tiny, small, usual}) {
        for (const bench::Entry& entry : bench::entries()) {
            if (!std::string_view(entry.name).ends_with("64")) count(shape, entry);
        }
    }
    return 0;
}
