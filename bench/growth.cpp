// How the cost of a call grows: times over rows, width, layers and tangents, the memory of a call, and the overhead of
// the smallest one. bench/growth runs it and makes tables and a plot of what it prints, tab-separated:
//
//     vemkn_growth rows|many_rows|width|layers|tangents|overhead     section  entry  threads  x  seconds
//     vemkn_growth memory                                    memory   entry  network  peak bytes  bytes kept

#include <malloc.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#include "entries.h"
#include "yardstick.h"

namespace {

// What operator new has given out while somebody counts, which is all memory of the library but OpenBLAS's own. Only calls
// on one thread are counted, and nothing is while times are taken: threads that allocate would wait for each other here.
bool counting = false;
std::ptrdiff_t in_use, peak;

}  // namespace

void* operator new(std::size_t n)
{
    void* p = std::malloc(n);
    if (p == nullptr) throw std::bad_alloc();
    if (counting) {
        in_use += static_cast<std::ptrdiff_t>(malloc_usable_size(p));
        peak = std::max(peak, in_use);
    }
    return p;
}

void operator delete(void* p) noexcept
{
    if (counting) in_use -= static_cast<std::ptrdiff_t>(malloc_usable_size(p));
    std::free(p);
}

void operator delete(void* p, std::size_t) noexcept
{
    operator delete(p);
}

namespace {

using bench::Entry;
using bench::Problem;
using bench::Shape;

constexpr int BATCH = 32;

// An entry point with a number of tangents; all others as in bench::entries().
struct Curve {
    const char* name;
    bench::Call* call;
    unsigned tangents;
};

const std::vector<Curve>& curves()
{
    static const std::vector<Curve> all = {{"obj", bench::obj, 0},
                                           {"g", bench::g, 0},
                                           {"Hv1", bench::Hv, 1},
                                           {"Jv1", bench::Jv, 1},
                                           {"vJ_vec8", bench::vJ_vec, 8}};
    return all;
}

// So that the first timing with two threads is not that of starting the team.
void warm_up(const std::function<void()>& work)
{
    using Clock = std::chrono::steady_clock;
    static bool warm = false;
    if (std::exchange(warm, true)) return;
    for (const auto start = Clock::now(); Clock::now() - start < std::chrono::seconds(1);) work();
}

void print_time(const char* section, const Curve& curve, const Problem& p, double x)
{
    const std::vector<double> in = bench::numbers_in(p, curve.tangents);
    std::vector<double> out = bench::numbers_out(p, curve.tangents);
    for (const unsigned threads : {1u, 2u}) {
        vemk_setpar(p.net, threads, BATCH);
        const auto work = [&] { curve.call(p, curve.tangents, in, out); };
        if (threads > 1) warm_up(work);
        const double seconds = bench::median_seconds(work);
        std::printf("%s\t%s\t%u\t%.10g\t%.6g\n", section, curve.name, threads, x, seconds);
        std::fflush(stdout);
    }
}

void print_times(const char* section, const Shape& shape, double x, std::size_t curves_from_first)
{
    const Problem p(shape, "softplus", "sum_log_dnorm_fat");
    for (std::size_t c = 0; c < curves_from_first; ++c) print_time(section, curves()[c], p, x);
}

void over_rows()
{
    for (const unsigned rows : {100u, 316u, 1000u, 3162u, 10000u, 100000u, 1000000u}) {
        print_times("rows", {"10-32-1", {10, 32, 1}, rows}, rows, curves().size());
    }
}

// More rows, for the objective and its gradient alone.
void over_many_rows()
{
    print_times("rows", {"10-32-1", {10, 32, 1}, 10000000}, 1e7, 2);
}

void over_width()
{
    for (const unsigned width : {4u, 8u, 16u, 32u, 64u, 128u, 256u, 512u}) {
        print_times("width", {"10-w-w-1", {10, width, width, 1}, 1000}, width, curves().size());
    }
}

void over_layers()
{
    for (unsigned layers = 2; layers <= 8; ++layers) {
        Shape shape = {"10-32-...-1", {10}, 1000};
        shape.widths.insert(shape.widths.end(), layers - 1, 32);
        shape.widths.push_back(1);
        print_times("layers", shape, layers, curves().size());
    }
}

void over_tangents()
{
    const Shape shape = {"8-16-16-1", {8, 16, 16, 1}, 1000};
    const Problem p(shape, "softplus", "sum_log_dnorm_fat");
    for (unsigned n = 1; n <= 256; n *= 2) {
        print_time("tangents", {"Hv", bench::Hv, n}, p, n);
        print_time("tangents", {"Jv", bench::Jv, n}, p, n);
        print_time("tangents", {"vJ_vec", bench::vJ_vec, n}, p, n);
    }
}

void overhead()
{
    const Shape shape = {"2-5-1", {2, 5, 1}, 1};
    const Problem p(shape, "softplus", "sum_log_dnorm_fat");
    for (const Entry& entry : bench::entries()) {
        if (entry.tangents > 8) continue;
        print_time("overhead", {entry.name, entry.call, entry.tangents}, p, 1);
    }
}

void memory()
{
    for (const Shape& shape : bench::shapes()) {
        for (const Entry& entry : bench::entries()) {
            if (entry.call != bench::g && entry.call != bench::Hv) continue;
            const Problem p(shape, "softplus", "sum_log_dnorm_fat");
            vemk_setpar(p.net, 1, BATCH);
            const std::vector<double> in = bench::numbers_in(p, entry.tangents);
            std::vector<double> out = bench::numbers_out(p, entry.tangents);
            in_use = peak = 0;
            counting = true;
            entry.call(p, entry.tangents, in, out);
            counting = false;
            std::printf("memory\t%s\t%s, %u rows\t%td\t%td\n",
                        entry.name,
                        shape.name,
                        shape.rows,
                        peak,
                        in_use);
            std::fflush(stdout);
        }
    }
}

}  // namespace

int main(int argc, char** argv)
{
    struct Section {
        const char* name;
        void (*run)();
    };

    constexpr Section SECTIONS[] = {{"rows", over_rows},
                                    {"many_rows", over_many_rows},
                                    {"width", over_width},
                                    {"layers", over_layers},
                                    {"tangents", over_tangents},
                                    {"overhead", overhead},
                                    {"memory", memory}};
    for (const Section& section : SECTIONS) {
        if (argc == 2 && std::strcmp(argv[1], section.name) == 0) {
            section.run();
            return 0;
        }
    }
    std::fputs("usage: vemkn_growth rows|many_rows|width|layers|tangents|overhead|memory\n",
               stderr);
    return 2;
}
