#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <string>
#include <vector>

#include "vemkn.h"

// Loaded before vemkn-fit's library (LD_PRELOAD), records what the fit asks vemk_g for; at the end writes 200 of its weight vectors,
// or as many as there were, with the network and the rows, to the file that VEMKN_RECORD names. bits/fit_points.cpp reads it.

namespace {

using Numbers = std::vector<double>;

struct Record {
    std::string text;
    unsigned rows = 0, xcols = 0, ycols = 0;
    Numbers x, y;
    std::vector<Numbers> weights;

    ~Record()
    {
        constexpr std::size_t MOST = 200;
        const char* const path = std::getenv("VEMKN_RECORD");
        std::FILE* const file = path == nullptr ? nullptr : std::fopen(path, "w");
        if (file == nullptr) return;
        const std::size_t n = weights.size() < MOST ? weights.size() : MOST;
        std::fprintf(file, "%s\n%u %u %u %zu\n", text.c_str(), rows, xcols, ycols, n);
        const auto write = [&](const Numbers& numbers) {
            for (const double number : numbers) std::fprintf(file, "%a ", number);
            std::fprintf(file, "\n");
        };
        write(x);
        write(y);
        for (std::size_t i = 0; i < n; ++i) write(weights[i * weights.size() / n]);
        std::fclose(file);
    }
};

Record record;

template <class Function>
Function next(const char* name, Function)
{
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

}  // namespace

VEMKNInfo* initVEMKNet(const char* text, int length)
{
    record.text.assign(text, static_cast<std::size_t>(length));
    return next("initVEMKNet", initVEMKNet)(text, length);
}

int vemk_g(VEMKNInfo* net,
           const double* w,
           unsigned nw,
           const double* x,
           const double* y,
           unsigned n,
           unsigned nin,
           unsigned nout,
           double* value,
           double* gradient)
{
    // One batch: the first that it is asked for.
    if (record.weights.empty()) {
        record.rows = n;
        record.xcols = nin;
        record.ycols = nout;
        record.x.assign(x, x + std::size_t{n} * nin);
        record.y.assign(y, y + std::size_t{n} * nout);
    }
    record.weights.emplace_back(w, w + nw);
    return next("vemk_g", vemk_g)(net, w, nw, x, y, n, nin, nout, value, gradient);
}
