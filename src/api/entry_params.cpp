#include <algorithm>

#include "api/handle.h"
#include "api/refusals.h"
#include "model/params.h"
#include "runtime/messages.h"

using namespace VEMKN;

namespace {

// The first `room` of the stored values; more room than values is the caller's mistake.
int copy_stored(const char* entry,
                const std::valarray<double>& stored,
                double* buffer,
                std::uint64_t room)
{
    if (room > stored.size()) {
        return refuse(
            entry, message("there is room for ", room, " values, the layer has ", stored.size()));
    }
    std::copy_n(std::begin(stored), room, buffer);
    return 0;
}

}  // namespace

unsigned vemk_numin(::VEMKNInfo* net)
{
    return net == nullptr ? 0 : net->model.numin;
}

unsigned vemk_maxcols(::VEMKNInfo* net)
{
    if (net == nullptr || net->model.weights.empty()) return 0;
    return std::min(net->model.numin, net->model.sizes[0]);
}

unsigned vemk_numout(::VEMKNInfo* net)
{
    return net == nullptr ? 0 : net->model.numout;
}

uint64_t vemk_numel(::VEMKNInfo* net)
{
    return net == nullptr ? 0 : net->numel;
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
    if (buffer != nullptr) {
        return copy_stored("vemk_weights", W.store(), buffer, std::uint64_t{*rows} * *cols);
    }
    *rows = static_cast<unsigned>(W.rows());
    *cols = static_cast<unsigned>(W.cols());
    return 0;
}

int vemk_bias(::VEMKNInfo* net, unsigned layer, double* buffer, unsigned* length)
{
    if (net == nullptr || layer >= net->model.biases.size() || length == nullptr) return -1;
    const std::valarray<double>& b = net->model.biases[layer];
    if (buffer != nullptr) return copy_stored("vemk_bias", b, buffer, *length);
    *length = static_cast<unsigned>(b.size());
    return 0;
}

int vemk_setweights(::VEMKNInfo* net, const double* w, unsigned n)
{
    if (const auto why = no_handle(net)) return refuse("vemk_setweights", why);
    if (const auto why = wrong_weight_count(net, n, "n")) return refuse("vemk_setweights", why);
    if (w == nullptr) {
        setweights0(net->model);
    } else {
        setweights(net->model, w);
    }
    return 0;
}

int vemk_getweights(::VEMKNInfo* net, double* w, unsigned n)
{
    if (net == nullptr || (w == nullptr && n > 0)) return -1;
    if (n > net->numel) return refuse("vemk_getweights", wrong_weight_count(net, n, "n"));
    const std::valarray<double> flat = getweights(net->model);
    std::copy_n(std::begin(flat), n, w);
    return 0;
}
