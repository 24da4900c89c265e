#include "network.h"

#include <cfenv>
#include <cmath>
#include <stdexcept>

#include "../../common/random.h"

namespace vemkn_tao {

namespace {

// initVEMKNet leaves the three traps off that -fp_trap arms.
VEMKNInfo* new_handle(const std::string& description)
{
    const int armed = fegetexcept();
    VEMKNInfo* const handle = initVEMKNet(description.data(), static_cast<int>(description.size()));
    std::feclearexcept(armed);
    feenableexcept(armed);
    return handle;
}

}  // namespace

Network::Network(const std::string& description, int threads, int batch)
    : handle_(new_handle(description))
{
    if (threads < 1 || batch < 1 ||
        vemk_setpar(handle(), static_cast<unsigned>(threads), batch) != 0)
        throw std::runtime_error("threads or batch out of range");
    vemk_quiet(handle(), 1);
    // One row of zeros shows what can be evaluated at all; without columns no width can be wrong.
    std::vector<double> outputs_of_row(outputs());
    double norm = 0.0;
    if (vemk_compute(handle(), nullptr, 0, nullptr, 1, 0, 0, outputs_of_row.data()) < 0 ||
        vemk_norm(handle(), outputs_of_row.data(), 1, outputs(), &norm) < 0)
        throw std::runtime_error("no network that can be evaluated: \"" + description + "\"");
}

void Network::check_width(std::uint64_t data_inputs, std::uint64_t data_outputs) const
{
    if (inputs() != data_inputs || outputs() != data_outputs)
        throw std::runtime_error("the network takes " + std::to_string(inputs()) + " inputs to " +
                                 std::to_string(outputs()) + " outputs, the data have " +
                                 std::to_string(data_inputs) + " and " +
                                 std::to_string(data_outputs));
}

bool Network::plain_residuals() const
{
    const double residual = -1.0;
    double norm = 0.0;
    vemk_logp(handle(), &residual, 1, &norm);
    return norm == residual;
}

std::vector<double> Network::random_weights(std::uint64_t seed, double spread) const
{
    examples::Random random(seed);
    std::vector<double> w;
    w.reserve(numel());
    unsigned rows = 0;
    unsigned columns = 0;
    for (unsigned layer = 0; vemk_weights(handle(), layer, nullptr, &rows, &columns) == 0;
         ++layer) {
        for (unsigned k = 0; k < columns; ++k) w.push_back(0.5 * spread * random.normal());
        const double scale = spread / std::sqrt(static_cast<double>(rows));
        for (unsigned k = 0; k < rows * columns; ++k) w.push_back(scale * random.normal());
    }
    return w;
}

}  // namespace vemkn_tao
