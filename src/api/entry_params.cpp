#include "api/buffers.h"
#include "api/handle.h"
#include "api/messages.h"
#include "api/refusals.h"

using namespace VEMKN;

namespace {

// The first `room` of the stored values; more room than values is the caller's mistake.
int copy_stored(const std::valarray<double>& stored, double* buffer, std::uint64_t room)
{
    if (room > stored.size()) return -1;
    std::copy_n(std::begin(stored), room, buffer);
    return 0;
}

}  // namespace

unsigned vemk_numin(::VEMKNInfo* net)
{
    return net == nullptr ? 0 : net->model.numin;
}

unsigned vemk_numout(::VEMKNInfo* net)
{
    return net == nullptr ? 0 : net->model.numout;
}

uint64_t vemk_numel(::VEMKNInfo* net)
{
    return net == nullptr ? 0 : numel(net->model);
}

double vemk_logp_bias(::VEMKNInfo* net)
{
    return net == nullptr ? 0.0 : net->model.logp_bias;
}

double vemk_logp_sigma(::VEMKNInfo* net)
{
    return net == nullptr ? 0.0 : net->model.logp_sigma;
}

int vemk_weights(::VEMKNInfo* net, unsigned layer, double* buffer, unsigned* rows, unsigned* cols)
{
    if (net == nullptr || layer >= net->model.weights.size()) return -1;
    if (rows == nullptr || cols == nullptr) return -1;
    const MatrixTemplate<double>& W = net->model.weights[layer];
    if (buffer != nullptr) return copy_stored(W.store(), buffer, std::uint64_t{*rows} * *cols);
    *rows = static_cast<unsigned>(W.rows());
    *cols = static_cast<unsigned>(W.cols());
    return 0;
}

int vemk_bias(::VEMKNInfo* net, unsigned layer, double* buffer, unsigned* length)
{
    if (net == nullptr || layer >= net->model.biases.size() || length == nullptr) return -1;
    const std::valarray<double>& b = net->model.biases[layer];
    if (buffer != nullptr) return copy_stored(b, buffer, *length);
    *length = static_cast<unsigned>(b.size());
    return 0;
}

int vemk_setweights(::VEMKNInfo* net, const double* w, unsigned n)
{
    const Refusal refusal("vemk_setweights", net);
    if (refusal.null_handle() || refusal.weight_count(n, "n")) return REFUSED;
    setweights(net->model, input_vector(w, n));
    return 0;
}

int vemk_getweights(::VEMKNInfo* net, double* w, unsigned n)
{
    if (net == nullptr || (w == nullptr && n > 0)) return -1;
    const std::uint64_t stored = numel(net->model);
    if (n > stored) {
        write_error(message(
            "vemk_getweights: refused: n is ", n, ", the network has ", stored, " parameters\n"));
        return REFUSED;
    }
    const std::valarray<double> flat = getweights(net->model);
    std::copy_n(std::begin(flat), n, w);
    return 0;
}
