// The bias of a layer on rows, by the library's loop and by three plain lines, for each instruction set that this processor runs:
// `vemkn_loops --benchmark_enable_random_interleaving=true --benchmark_repetitions=9`.

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "support/instruction_sets.h"

namespace {

using Rows = VEMKN::StridedMatrix<double>;

[[gnu::always_inline]] inline void plain_loop(const double* a, const Rows& to)
{
    for (std::size_t r = 0; r < to.rows; ++r) {
        for (std::size_t c = 0; c < to.cols; ++c) to.data[r * to.pitch + c] += a[c];
    }
}

void plain(const double* a, const Rows& to)
{
    plain_loop(a, to);
}

[[gnu::target("avx2")]] void plain_avx2(const double* a, const Rows& to)
{
    plain_loop(a, to);
}

[[gnu::target("avx512f,prefer-vector-width=512")]] void plain_avx512(const double* a,
                                                                     const Rows& to)
{
    plain_loop(a, to);
}

using Loop = void (*)(const double* a, const Rows& to);

Loop plain_of(VEMKN::InstructionSet set)
{
    switch (set) {
        case VEMKN::InstructionSet::avx512:
            return plain_avx512;
        case VEMKN::InstructionSet::avx2:
            return plain_avx2;
        default:
            return plain;
    }
}

void register_one(const std::string& name, Loop loop, std::size_t cols)
{
    benchmark::RegisterBenchmark((name + "/32x" + std::to_string(cols)).c_str(),
                                 [=](benchmark::State& state) {
                                     std::vector<double> bias(cols, 0.25), data(32 * cols);
                                     for (auto _ : state) {
                                         loop(bias.data(), {data.data(), 32, cols, cols});
                                         benchmark::DoNotOptimize(data.data());
                                         benchmark::ClobberMemory();
                                     }
                                 });
}

}  // namespace

int main(int argc, char** argv)
{
    for (const auto set : available_instruction_sets()) {
        const VEMKN::Kernels& kernels = VEMKN::kernels_of(set);
        for (const std::size_t cols : {5, 20, 33, 64, 100}) {
            register_one(kernels.name + std::string("/library"), kernels.add_to_rows, cols);
            register_one(kernels.name + std::string("/plain"), plain_of(set), cols);
        }
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
