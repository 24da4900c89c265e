// Every entry point on five networks, three activations, one and two threads. Beside each time stand
//
//   x_products  the ratio to the bare BLAS products of the same shapes on one thread
//   x_limit     the ratio to what the fastest products and the element functions alone would take (limit.h), on as many threads
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

#include "entries.h"
#include "limit.h"
#include "yardstick.h"

namespace {

using bench::Entry;
using bench::Problem;
using bench::Products;
using bench::Shape;

constexpr unsigned BATCH = 32;

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
        entry->second =
            bench::median_seconds([&] { (*what == 'g' ? bench::g : bench::objv)(p, 0, in, out); });
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
    const std::vector<double> in = bench::numbers_in(p, entry.tangents);
    std::vector<double> out = bench::numbers_out(p, entry.tangents);
    const Products bare = products(shape);
    const double yardstick =
        entry.forward_passes * bare.forward + entry.backward_passes * bare.backward;

    double seconds = 0.0;
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        entry.call(p, entry.tangents, in, out);
        const double elapsed =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        state.SetIterationTime(elapsed);
        seconds += elapsed;
        benchmark::DoNotOptimize(out.data());
    }
    state.counters["products_us"] = 1e6 * yardstick;
    const double mean = seconds / static_cast<double>(state.iterations());
    state.counters["x_products"] = mean / yardstick;
    state.counters["x_limit"] = mean / bench::limit_seconds(entry, shape, activation, threads);
    if (entry.tangents == 0) return;
    state.counters["x_g"] = mean / unit_seconds(p, "g", threads);
    if (entry.call == bench::Jv) {
        state.counters["x_forward"] =
            mean / ((entry.tangents + 1) * unit_seconds(p, "objv", threads));
    }
}

// Memory for N tangents of the widest network; 64 of them on 200,000 rows would show no more than 8.
bool too_large(const Entry& entry, const Shape& shape)
{
    return entry.tangents > 8 && shape.rows > 10000;
}

}  // namespace

int main(int argc, char** argv)
{
    for (const Entry& entry : bench::entries()) {
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
    benchmark::AddCustomContext("dgemm_gflops", std::to_string(bench::product_gflops()));
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
