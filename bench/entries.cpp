#include "entries.h"

#include <algorithm>

#include "support/entry_points.h"

namespace bench {

namespace {

void run(const EntryPoint& entry,
         const Problem& p,
         unsigned tangents,
         const std::vector<double>& in,
         std::vector<double>& out)
{
    const ::Call call{.w = p.w.data(),
                      .nw = p.nw,
                      .x = p.x.data(),
                      .y = p.y.data(),
                      .nrows = p.rows,
                      .xcols = p.nin,
                      .ycols = p.nout,
                      .v = in.data(),
                      .nv = tangents};
    run_into(entry, p.net, call, out.data());
}

}  // namespace

void compute(const Problem& p, unsigned n, const std::vector<double>& in, std::vector<double>& out)
{
    run(entry_points::compute, p, n, in, out);
}

void obj(const Problem& p, unsigned n, const std::vector<double>& in, std::vector<double>& out)
{
    run(entry_points::obj, p, n, in, out);
}

void objv(const Problem& p, unsigned n, const std::vector<double>& in, std::vector<double>& out)
{
    run(entry_points::objv, p, n, in, out);
}

void g(const Problem& p, unsigned n, const std::vector<double>& in, std::vector<double>& out)
{
    run(entry_points::g, p, n, in, out);
}

void Hv(const Problem& p, unsigned n, const std::vector<double>& in, std::vector<double>& out)
{
    run(entry_points::Hv, p, n, in, out);
}

void Jv(const Problem& p, unsigned n, const std::vector<double>& in, std::vector<double>& out)
{
    run(entry_points::Jv, p, n, in, out);
}

void vJ(const Problem& p, unsigned n, const std::vector<double>& in, std::vector<double>& out)
{
    run(entry_points::vJ, p, n, in, out);
}

void vJ_vec(const Problem& p, unsigned n, const std::vector<double>& in, std::vector<double>& out)
{
    run(entry_points::vJ_vec, p, n, in, out);
}

const std::vector<Entry>& entries()
{
    static const std::vector<Entry> all = {
        {"compute", 0, 1, 0, compute},
        {"obj", 0, 1, 0, obj},
        {"objv", 0, 1, 0, objv},
        {"g", 0, 1, 1, g},
        {"Hv1", 1, 3, 3, Hv},
        {"Hv8", 8, 17, 17, Hv},
        {"Hv64", 64, 129, 129, Hv},
        {"Jv1", 1, 3, 0, Jv},
        {"Jv8", 8, 17, 0, Jv},
        {"Jv64", 64, 129, 0, Jv},
        {"vJ1", 1, 1, 1, vJ},
        {"vJ_vec8", 8, 1, 8, vJ_vec},
        {"vJ_vec64", 64, 1, 64, vJ_vec},
    };
    return all;
}

std::vector<double> numbers_in(const Problem& p, unsigned tangents)
{
    const std::size_t n = std::max(tangents, 1u);
    return uniform(n * std::max<std::size_t>(p.nw, p.y.size()), 7);
}

std::vector<double> numbers_out(const Problem& p, unsigned tangents)
{
    return std::vector<double>(1 + (std::max(tangents, 1u) + std::size_t{1}) * (p.nw + p.y.size()));
}

}  // namespace bench
