// Results of every computing entry point on seeded networks, for scripts/same-bits to compare between two libraries.
//
//     results                  one line a call: network, call, status, how many results, their hash; separated by tabs
//     results NETWORK CALL     the results of that call, one a line
//     results FILE             compares one hash for all results of a network with those in FILE; 77 where the processor lacks
//                              the instruction set that it was built for
//     results --write FILE     writes such a file

#include <dlfcn.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "support/entry_points.h"
#include "support/random.h"
#ifdef VEMKN_INSTRUCTION_SET
#include "kernels/kernels.h"
#endif

namespace {

using Numbers = std::vector<double>;

enum class Kind { plain, deep, wide, padded, chained, large, widest };

constexpr Kind KINDS[] = {
    Kind::plain, Kind::deep, Kind::wide, Kind::padded, Kind::chained, Kind::large, Kind::widest};
constexpr unsigned NETWORKS_OF_A_KIND = 22;
constexpr unsigned OF_THE_WIDEST = 6;
constexpr const char* ACTIVATIONS[] = {
    "softplus", "atan", "relu", "id", "softmax", "softplus_shifted", "another"};
constexpr const char* NORMS[] = {"sum_log_dnorm_fat", "sum"};

struct Case {
    unsigned numin = 1, numout = 1, nmult = 1;
    std::vector<unsigned> sizes;
    std::string words;
    unsigned rows = 0, cols = 0;
    std::uint64_t seed = 0;

    std::string text() const
    {
        std::string text = std::to_string(numin) + " " + std::to_string(numout) + " " +
                           std::to_string(sizes.size()) + " " + std::to_string(nmult) + " 8 ";
        for (const unsigned size : sizes) text += std::to_string(size) + " ";
        return text + words;
    }
};

Case drawn(Kind kind, unsigned number)
{
    Case c;
    c.seed = 1000 * static_cast<std::uint64_t>(kind) + number;
    Random random(c.seed);
    const auto some = [&](unsigned from, unsigned to) {
        return from + random.below(to - from + 1);
    };
    c.words = std::string(ACTIVATIONS[number % std::size(ACTIVATIONS)]) + " " +
              NORMS[number / 7 % std::size(NORMS)];
    c.numout = some(1, 4);
    constexpr unsigned ROWS[] = {1, 7, 33, 64, 100, 203};
    c.rows = ROWS[number % std::size(ROWS)];
    std::size_t layers = some(2, 3);
    unsigned least = 1, most = 20;
    if (kind == Kind::deep) layers = some(5, 9);
    if (kind == Kind::wide) least = 60, most = 150, c.rows = std::min(c.rows, 64u);
    for (std::size_t i = 0; i < layers; ++i) c.sizes.push_back(some(least, most));
    if (kind == Kind::large) {
        // More multiplications in a product of 64 rows than a small product has.
        c.sizes = {some(150, 180), some(150, 180)};
        c.rows = std::min(c.rows, 100u);
    }
    if (kind == Kind::widest) {
        // Up to the widest layer that our kernels multiply by.
        c.sizes = {some(20, 384), number % 4 == 0 ? 384u : some(181, 384)};
        c.rows = std::min(c.rows, 33u);
    }
    if (kind == Kind::chained) {
        c.nmult = some(2, 3);
        c.sizes.back() = c.sizes.front();
    }
    c.numin = c.cols = c.sizes.front();
    if (kind == Kind::padded) {
        c.numin = some(1, c.sizes.front() + 3);
        c.cols = random.below(std::min(c.numin, c.sizes.front()) + 1);
    }
    return c;
}

std::vector<Case> cases()
{
    std::vector<Case> all;
    for (const Kind kind : KINDS) {
        const unsigned number = kind == Kind::widest ? OF_THE_WIDEST : NETWORKS_OF_A_KIND;
        for (unsigned i = 0; i < number; ++i) all.push_back(drawn(kind, i));
    }
    return all;
}

struct Setting {
    unsigned threads;
    int batch;
    unsigned nv;
    bool row_order = false;
    bool quiet = false;
    bool own_weights = false;
    double odd = 0.0;  // in place of an input, unless 0
};

std::string label(const EntryPoint& entry, const Setting& s, unsigned rows)
{
    std::string text = std::string(entry.name) + " rows " + std::to_string(rows) + " threads " +
                       std::to_string(s.threads) + " batch " + std::to_string(s.batch) + " nv " +
                       std::to_string(s.nv);
    if (s.row_order) text += " row order";
    if (s.quiet) text += " quiet";
    if (s.own_weights) text += " own weights";
    if (s.odd != 0.0) text += " input " + std::to_string(s.odd).substr(0, 5);
    return text;
}

// One NaN is as good as another: which of two operands' a sum takes is the compiler's choice.
std::uint64_t pattern(double number)
{
    std::uint64_t bits;
    std::memcpy(&bits, &number, sizeof bits);
    return std::isnan(number) ? 0x7ff8000000000000u : bits;
}

std::uint64_t hash(const Numbers& numbers)
{
    std::uint64_t h = 0xcbf29ce484222325u;
    for (const double number : numbers) {
        h = (h ^ pattern(number)) * 0x100000001b3u;
        h ^= h >> 29;
    }
    return h;
}

// visit(label, status, results) for every call on one network.
template <class Visit>
void run(const Case& c, const Visit& visit)
{
    const std::string text = c.text();
    VEMKNInfo* const net = initVEMKNet(text.data(), static_cast<int>(text.size()));
    const auto nw = static_cast<unsigned>(vemk_numel(net));
    Random random(c.seed + 77);
    const double scale = 1.5 / std::sqrt(static_cast<double>(c.sizes.back()));
    const Numbers w = random.list(nw, -scale, scale);
    const Numbers x = random.list(std::size_t{c.rows} * c.cols + 1);
    // Residuals in the core, in the tail, and near where the one ends.
    const Numbers y = random.list(std::size_t{c.rows} * c.numout, -4, 4);
    const Numbers v = random.list(9 * std::max<std::size_t>(nw, std::size_t{c.rows} * c.numout));
    vemk_setweights(net, w.data(), nw);

    const auto call = [&](const EntryPoint& entry, const Setting& s, unsigned rows) {
        Numbers inputs = x;
        if (s.odd != 0.0) inputs[inputs.size() / 2] = s.odd;
        vemk_setpar(net, s.threads, s.batch);
        vemk_major(net, s.row_order);
        vemk_quiet(net, s.quiet);
        const Call arguments{.w = s.own_weights ? nullptr : w.data(),
                             .nw = nw,
                             .x = inputs.data(),
                             .y = y.data(),
                             .nrows = rows,
                             .xcols = c.cols,
                             .ycols = c.numout,
                             .v = v.data(),
                             .nv = s.nv};
        Numbers results(entry.sizes(arguments).all(), -5.0);
        const int status = run_into(entry, net, arguments, results.data());
        visit(label(entry, s, rows), status, results);
    };
    const auto call_each = [&](const Setting& s, unsigned rows) {
        for (const EntryPoint& entry : ENTRY_POINTS) call(entry, s, rows);
    };

    const int one_slice = static_cast<int>(c.rows) + 3;
    for (const unsigned threads : {1u, 2u, 3u, 5u}) {
        for (const int batch : {1, 32, one_slice}) {
            if (c.sizes.back() > 50 && batch == 1 && threads > 2) continue;
            call_each({threads, batch, 1}, c.rows);
            call_each({threads, batch, 5}, c.rows);
        }
    }
    call_each({2, 32, 9}, c.rows);
    call_each({1, 32, 0}, c.rows);
    call_each({2, 8, 3, false, true, true}, c.rows);
    call_each({2, 8, 2}, 1);
    for (const EntryPoint& entry : ENTRY_POINTS) {
        const std::string name = entry.name;
        // Those that do not divide by the number of elements.
        if (name != "vemk_obj" && name != "vemk_g" && name != "vemk_Hv") call(entry, {2, 8, 2}, 0);
    }
    if (nw <= 60) {
        call(entry_points::Hv, {2, 16, std::min(nw, 9u), true}, c.rows);
        call(entry_points::Jv, {2, 16, std::min(nw, 9u), true}, c.rows);
    }
    // What a quiet handle lets through.
    for (const double odd : {1e200, HUGE_VAL, std::nan("")}) {
        call_each({3, 16, 2, false, true, false, odd}, c.rows);
    }
    releaseVEMKNet(net);
}

// Network and hash, for one network of `every`, and an empty line for each of the others.
std::string digests(std::size_t every)
{
    std::string text;
    std::size_t i = 0;
    for (const Case& c : cases()) {
        if (i++ % every != 0) {
            text += "\n";
            continue;
        }
        std::uint64_t h = hash({});
        run(c, [&](const std::string&, int status, const Numbers& results) {
            h = (h ^ hash(results) ^ static_cast<std::uint64_t>(status)) * 0x100000001b3u;
            h ^= h >> 29;
        });
        char line[32];
        std::snprintf(line, sizeof line, "%016lx ", h);
        text += line + c.text() + "\n";
    }
    return text;
}

int compare(const std::string& path, std::size_t every)
{
#ifdef VEMKN_INSTRUCTION_SET
    if (!VEMKN::processor_has(VEMKN::InstructionSet::VEMKN_INSTRUCTION_SET)) return 77;
#elif defined(__x86_64__)
    if (!__builtin_cpu_supports("avx2") || !__builtin_cpu_supports("fma")) return 77;
#endif
    if (const char* const preloaded = std::getenv("LD_PRELOAD")) {
        Dl_info found{};
        dladdr(dlsym(RTLD_DEFAULT, "cblas_dgemm"), &found);
        if (found.dli_fname == nullptr || std::string(preloaded) != found.dli_fname) {
            std::printf("cblas_dgemm is not that of %s\n", preloaded);
            return 1;
        }
    }
    std::ifstream file(path);
    if (!file) {
        std::printf("%s cannot be read\n", path.c_str());
        return 1;
    }
    std::istringstream computed(digests(every));
    int differing = 0;
    std::string expected, found;
    while (std::getline(computed, found)) {
        const bool is_there = static_cast<bool>(std::getline(file, expected));
        if (!is_there || (!found.empty() && expected != found)) {
            std::printf("%s\n", found.c_str());
            ++differing;
        }
    }
    if (std::getline(file, expected)) ++differing;
    std::printf("%d networks have other bits than the stored ones\n", differing);
    return differing == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc == 3 && std::strcmp(argv[1], "--write") == 0) {
        std::ofstream file(argv[2]);
        file << digests(1);
        return file.flush() ? 0 : 1;
    }
    if (argc == 2) return compare(argv[1], 1);
    if (argc == 4 && std::strcmp(argv[2], "--every") == 0) {
        return compare(argv[1], std::stoul(argv[3]));
    }
    for (const Case& c : cases()) {
        const std::string text = c.text();
        if (argc == 3 && text != argv[1]) continue;
        run(c, [&](const std::string& call, int status, const Numbers& results) {
            if (argc != 3) {
                std::printf("%s\t%s\t%d\t%zu\t%016lx\n",
                            text.c_str(),
                            call.c_str(),
                            status,
                            results.size(),
                            hash(results));
            } else if (call == argv[2]) {
                for (const double number : results)
                    std::printf("%016lx %a\n", pattern(number), number);
            }
        });
    }
    return 0;
}
