// Every entry point on five networks, three activations, one and two threads. Beside each time stand
//
//   x_products  the ratio to the bare BLAS products of the same shapes on one thread
//   x_g         of a derivative product: the ratio to vemk_g on the same network
//   x_forward   of a Jacobian-vector product: the ratio to N + 1 forward passes, each as vemk_objv makes it
//
// all measured in the same run.
//
//     vemkn_bench --benchmark_filter='^g/.*softplus' --benchmark_repetitions=5

#include <benchmark/benchmark.h>
#include <cblas.h>

#include <map>
#include <memory>
#include <tuple>

#include "problem.h"
#include "yardstick.h"

namespace {

using bench::Problem;
using bench::Products;
using bench::Shape;

constexpr unsigned BATCH = 32;

// An entry point as the table knows it: its name, how many directions or weightings it gets, and how many forward and
// backward products its result asks for in units of one pass.
struct Entry {
    const char* name;
    unsigned directions;
    double forward_passes;
    double backward_passes;
    void (*call)(const Problem&,
                 unsigned directions,
                 std::vector<double>& in,
                 std::vector<double>& out);
};

void compute(const Problem& p, unsigned, std::vector<double>&, std::vector<double>& out)
{
    vemk_compute(p.net, p.w.data(), p.nw, p.x.data(), p.rows, p.nin, 0, out.data());
}

void obj(const Problem& p, unsigned, std::vector<double>&, std::vector<double>& out)
{
    vemk_obj(p.net, p.w.data(), p.nw, p.x.data(), p.y.data(), p.rows, p.nin, p.nout, out.data());
}

void objv(const Problem& p, unsigned, std::vector<double>&, std::vector<double>& out)
{
    vemk_objv(p.net, p.w.data(), p.nw, p.x.data(), p.y.data(), p.rows, p.nin, p.nout, out.data());
}

void g(const Problem& p, unsigned, std::vector<double>&, std::vector<double>& out)
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

void Hv(const Problem& p, unsigned n, std::vector<double>& in, std::vector<double>& out)
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

void Jv(const Problem& p, unsigned n, std::vector<double>& in, std::vector<double>& out)
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

void vJ(const Problem& p, unsigned, std::vector<double>& in, std::vector<double>& out)
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

void vJ_vec(const Problem& p, unsigned k, std::vector<double>& in, std::vector<double>& out)
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

const Problem& problem(const Shape& shape, const std::string& activation)
{
    static std::map<std::pair<const Shape*, std::string>, std::unique_ptr<Problem>> made;
    auto& entry = made[{&shape, activation}];
    if (!entry) entry = std::make_unique<Problem>(shape, activation, "sum_log_dnorm_fat");
    return *entry;
}

// Seconds of another entry point on the same problem, the unit that a derivative product is measured in.
double unit_seconds(const Problem& p, const char* what, unsigned threads)
{
    static std::map<std::tuple<const Problem*, std::string, unsigned>, double> measured;
    const auto [entry, is_new] = measured.try_emplace({&p, what, threads}, 0.0);
    if (is_new) {
        std::vector<double> in, out(1 + p.nw + p.y.size());
        entry->second = bench::median_seconds([&] { (*what == 'g' ? g : objv)(p, 0, in, out); });
    }
    return entry->second;
}

Products products(const Shape& shape)
{
    static std::map<const Shape*, Products> measured;
    const auto found = measured.find(&shape);
    if (found != measured.end()) return found->second;
    return measured[&shape] = bench::bare_products(shape, BATCH);
}

void run(benchmark::State& state,
         const Entry& entry,
         const Shape& shape,
         const std::string& activation,
         unsigned threads)
{
    const Problem& p = problem(shape, activation);
    vemk_setpar(p.net, threads, BATCH);
    const std::size_t N = std::max(entry.directions, 1u);
    std::vector<double> in = bench::uniform(N * std::max<std::size_t>(p.nw, p.y.size()), 7);
    std::vector<double> out(1 + (N + 1) * (p.nw + p.y.size()));
    const Products bare = products(shape);
    const double yardstick =
        entry.forward_passes * bare.forward + entry.backward_passes * bare.backward;

    double seconds = 0.0;
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        entry.call(p, entry.directions, in, out);
        const double elapsed =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        state.SetIterationTime(elapsed);
        seconds += elapsed;
        benchmark::DoNotOptimize(out.data());
    }
    state.counters["products_us"] = 1e6 * yardstick;
    const double mean = seconds / static_cast<double>(state.iterations());
    state.counters["x_products"] = mean / yardstick;
    if (entry.directions == 0) return;
    state.counters["x_g"] = mean / unit_seconds(p, "g", threads);
    if (entry.call == Jv) {
        state.counters["x_forward"] =
            mean / ((entry.directions + 1) * unit_seconds(p, "objv", threads));
    }
}

// Memory for N directions of the widest network; 64 of them on 200,000 rows would not tell more than 8.
bool too_large(const Entry& entry, const Shape& shape)
{
    return entry.directions > 8 && shape.rows > 10000;
}

}  // namespace

int main(int argc, char** argv)
{
    const std::vector<Entry> entries = {
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
    for (const Entry& entry : entries) {
        for (const Shape& shape : bench::shapes()) {
            if (too_large(entry, shape)) continue;
            for (const char* activation : {"softplus", "atan", "relu"}) {
                for (const unsigned threads : {1u, 2u}) {
                    const std::string name = std::string(entry.name) + "/net:" + shape.name +
                                             "/rows:" + std::to_string(shape.rows) + "/" +
                                             activation + "/threads:" + std::to_string(threads);
                    benchmark::RegisterBenchmark(name.c_str(),
                                                 [=, &shape](benchmark::State& state) {
                                                     run(state, entry, shape, activation, threads);
                                                 })
                        ->UseManualTime()
                        ->Unit(benchmark::kMicrosecond);
                }
            }
        }
    }
    benchmark::AddCustomContext("openblas_core", openblas_get_corename());
    benchmark::AddCustomContext("openblas", openblas_get_config());
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
