#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "vemkn.h"

// Any bytes as a description text: parsed, read out, and evaluated where that takes no time.
//
// Made with libFuzzer: give it a folder of texts to start from (tests/fuzz/corpus), and -close_fd_mask=3 for silence.

namespace {

constexpr long MEGABYTES = 2;
constexpr std::uint64_t FEW_PARAMETERS = 5000;
constexpr std::uint64_t FEW_STEPS = 200;

void check(bool holds)
{
    if (!holds) std::abort();
}

// How many layers a call runs through, which no entry point gives: layers times passes.
std::uint64_t steps_of(const std::string& text)
{
    std::istringstream in(text);
    std::uint32_t numin = 0, numout = 0, layers = 0, passes = 0;
    in >> numin >> numout >> layers >> passes;
    return std::uint64_t{layers} * passes;
}

void read_out(VEMKNInfo* net)
{
    const std::uint64_t n = vemk_numel(net);
    std::vector<double> w(n);
    check(vemk_getweights(net, w.data(), static_cast<unsigned>(n)) == 0);
    std::uint64_t counted = 0;
    unsigned rows = 0, cols = 0, length = 0;
    for (unsigned layer = 0; vemk_weights(net, layer, nullptr, &rows, &cols) == 0; ++layer) {
        std::vector<double> W(std::size_t{rows} * cols), b(cols);
        check(vemk_weights(net, layer, W.data(), &rows, &cols) == 0);
        check(vemk_bias(net, layer, nullptr, &length) == 0 && length == cols);
        check(vemk_bias(net, layer, b.data(), &length) == 0);
        counted += W.size() + b.size();
    }
    check(counted == n);
}

void evaluate(VEMKNInfo* net)
{
    const std::uint64_t n = vemk_numel(net);
    const unsigned numout = vemk_numout(net);
    unsigned rows = 0, cols = 0;
    if (vemk_weights(net, 0, nullptr, &rows, &cols) != 0) return;
    // Inputs are padded to that many columns, even for a layer without units, which has no parameters.
    if (rows > FEW_PARAMETERS) return;
    std::vector<double> gradient(n), out(std::size_t{3} * numout), w(n, 0.5);
    double value = 0;
    const auto nw = static_cast<unsigned>(n);
    const unsigned columns = 0;  // fits any network; missing columns are zeros
    vemk_quiet(net, 1);
    vemk_setpar(net, 1, 2);
    vemk_compute(net, w.data(), nw, nullptr, 3, columns, 0, out.data());
    vemk_g(net, w.data(), nw, nullptr, nullptr, 3, columns, numout, &value, gradient.data());
    std::vector<double> product(n);
    vemk_Hv(net,
            w.data(),
            nw,
            w.data(),
            1,
            nullptr,
            nullptr,
            3,
            columns,
            numout,
            &value,
            gradient.data(),
            product.data());
}

}  // namespace

// The library takes half of the machine's memory for a network at most. A machine of a few megabytes keeps the fuzzer from
// spending its time on zeroing large networks.
extern "C" long __sysconf(int name);

extern "C" long sysconf(int name) noexcept
{
    if (name == _SC_PHYS_PAGES) return (MEGABYTES << 20) / __sysconf(_SC_PAGESIZE);
    return __sysconf(name);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    VEMKNInfo* const net = initVEMKNet(text.data(), static_cast<int>(text.size()));
    check(net != nullptr);
    if (vemk_numel(net) <= FEW_PARAMETERS) {
        read_out(net);
        if (steps_of(text) <= FEW_STEPS) evaluate(net);
    }
    releaseVEMKNet(net);
    return 0;
}
