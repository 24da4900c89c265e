// vemkn-tao-data: writes a file of rows whose targets come from a network with known weights, with normal scatter
// and gross outliers. Rows are made and written in blocks, so the file may be larger than the memory.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <exception>

#include "../../common/random.h"
#include "network.h"
#include "rows.h"

using namespace vemkn_tao;

namespace {

struct Synthetic {
    std::string path;
    std::uint64_t rows = 0;
    std::string network = "10 1 2 1 32 10 32 softplus sum";
    std::uint64_t seed = 1;
    double scatter = 1.0 / 3.0;  // that of the likelihood's core
    double outliers = 0.05;
};

Synthetic parse(int argc, char** argv)
{
    Synthetic wanted;
    CLI::App app("Writes a synthetic file of rows for vemkn-tao.");
    app.add_option("file", wanted.path, "file to write")->required();
    app.add_option("--rows", wanted.rows)->required()->check(CLI::PositiveNumber);
    app.add_option("--net", wanted.network, "description of the true network")
        ->capture_default_str();
    app.add_option("--seed", wanted.seed)->capture_default_str();
    app.add_option("--scatter", wanted.scatter, "standard deviation of the normal scatter")
        ->check(CLI::NonNegativeNumber)
        ->capture_default_str();
    app.add_option("--outliers", wanted.outliers, "share of targets that are 10 to 100 too high")
        ->check(CLI::Range(0.0, 1.0))
        ->capture_default_str();
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        std::exit(app.exit(error) == 0 ? 0 : 2);
    }
    return wanted;
}

void write(const Synthetic& wanted)
{
    const Network network(wanted.network, 1, 32);
    const auto truth = network.random_weights(wanted.seed, 2.0);
    RowsWriter file(wanted.path, {wanted.rows, network.inputs(), network.outputs()});
    examples::Random random(wanted.seed + 1);
    constexpr std::uint64_t block = 4096;
    std::vector<double> x(block * network.inputs());
    std::vector<double> y(block * network.outputs());
    for (std::uint64_t done = 0; done < wanted.rows; done += block) {
        const auto n = static_cast<unsigned>(std::min(block, wanted.rows - done));
        for (double& value : x) value = random.normal();
        vemk_compute(network.handle(),
                     truth.data(),
                     network.numel(),
                     x.data(),
                     n,
                     network.inputs(),
                     0,
                     y.data());
        for (double& value : y) {
            value += wanted.scatter * random.normal();
            const double size = 10.0 + 90.0 * random.uniform();
            if (random.uniform() < wanted.outliers) value += size;
        }
        file.append(x.data(), y.data(), n);
    }
    file.close();
}

}  // namespace

int main(int argc, char** argv)
{
    const Synthetic wanted = parse(argc, argv);
    try {
        write(wanted);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "vemkn-tao-data: %s\n", error.what());
        return 1;
    }
}
