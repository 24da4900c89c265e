#include "entries.h"

#include <algorithm>

namespace bench {

void compute(const Problem& p, unsigned, const std::vector<double>&, std::vector<double>& out)
{
    vemk_compute(p.net, p.w.data(), p.nw, p.x.data(), p.rows, p.nin, 0, out.data());
}

void obj(const Problem& p, unsigned, const std::vector<double>&, std::vector<double>& out)
{
    vemk_obj(p.net, p.w.data(), p.nw, p.x.data(), p.y.data(), p.rows, p.nin, p.nout, out.data());
}

void objv(const Problem& p, unsigned, const std::vector<double>&, std::vector<double>& out)
{
    vemk_objv(p.net, p.w.data(), p.nw, p.x.data(), p.y.data(), p.rows, p.nin, p.nout, out.data());
}

void g(const Problem& p, unsigned, const std::vector<double>&, std::vector<double>& out)
{
    vemk_g(p.net,
           p.w.data(),
           p.nw,
           p.x.data(),
           p.y.data(),
           p.rows,
           p.nin,
           p.nout,
           out.data(),
           out.data() + 1);
}

void Hv(const Problem& p, unsigned n, const std::vector<double>& in, std::vector<double>& out)
{
    vemk_Hv(p.net,
            p.w.data(),
            p.nw,
            in.data(),
            n,
            p.x.data(),
            p.y.data(),
            p.rows,
            p.nin,
            p.nout,
            out.data(),
            out.data() + 1,
            out.data() + 1 + p.nw);
}

void Jv(const Problem& p, unsigned n, const std::vector<double>& in, std::vector<double>& out)
{
    const std::size_t elements = std::size_t{p.rows} * p.nout;
    vemk_Jv(p.net,
            p.w.data(),
            p.nw,
            in.data(),
            n,
            p.x.data(),
            p.y.data(),
            p.rows,
            p.nin,
            p.nout,
            out.data(),
            out.data() + elements);
}

void vJ(const Problem& p, unsigned, const std::vector<double>& in, std::vector<double>& out)
{
    vemk_vJ(p.net,
            p.w.data(),
            p.nw,
            in.data(),
            0,
            p.x.data(),
            p.y.data(),
            p.rows,
            p.nin,
            p.nout,
            out.data(),
            out.data() + p.y.size());
}

void vJ_vec(const Problem& p, unsigned k, const std::vector<double>& in, std::vector<double>& out)
{
    vemk_vJ_vec(p.net,
                p.w.data(),
                p.nw,
                in.data(),
                k,
                p.x.data(),
                p.y.data(),
                p.rows,
                p.nin,
                p.nout,
                out.data(),
                out.data() + p.y.size());
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

std::vector<double> numbers_in(const Problem& p, unsigned directions)
{
    const std::size_t n = std::max(directions, 1u);
    return uniform(n * std::max<std::size_t>(p.nw, p.y.size()), 7);
}

std::vector<double> numbers_out(const Problem& p, unsigned directions)
{
    return std::vector<double>(1 +
                               (std::max(directions, 1u) + std::size_t{1}) * (p.nw + p.y.size()));
}

}  // namespace bench
