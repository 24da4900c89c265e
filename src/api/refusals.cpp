#include "api/refusals.h"

#include "network/description.h"
#include "runtime/messages.h"

namespace VEMKN {

namespace {

// Weights and targets that fit the network, and fewer residuals than 2^32.
Reason unfit_counts(const VEMKNInfo* net, std::optional<unsigned> nw, const Batch& batch)
{
    if (nw) {
        if (Reason why = wrong_weight_count(net, *nw)) return why;
    }
    const unsigned numout = net->model.numout;
    if (batch.ycols != numout) {
        return message(
            "the targets have ", batch.ycols, " columns, the network ", numout, " outputs");
    }
    return too_many("residuals", batch.rows, batch.ycols);
}

}  // namespace

Reason no_handle(const VEMKNInfo* net)
{
    if (net != nullptr) return {};
    return "the handle is null";
}

Reason unusable_network(const VEMKNInfo* net)
{
    if (Reason why = no_handle(net)) return why;
    const DoubleModel& m = net->model;
    const std::size_t layers = m.weights.size();
    return unfit_layers(layers,
                        m.nmult,
                        layers < 2 ? 0 : m.weights.front().rows(),
                        layers < 2 ? 0 : m.biases[layers - 2].size());
}

Reason no_norm(const VEMKNInfo* net)
{
    if (net->model.summing_norm.is_set()) return {};
    return message("the network has no norm, its norm name is \"", net->model.norm_name, "\"");
}

Reason wrong_weight_count(const VEMKNInfo* net, unsigned nw, const char* name)
{
    if (nw == net->numel) return {};
    return message(name, " is ", nw, ", the network has ", net->numel, " parameters");
}

Reason too_many(const char* what, std::uint64_t a, std::uint64_t b, std::uint64_t c)
{
    constexpr std::uint64_t limit = std::uint64_t{1} << 32;
    const std::uint64_t all = a * b * c;
    if (all < limit) return {};
    return message("the number of ", what, ", ", all, ", is not below ", limit);
}

Reason wrong_tangents(bool row_order, unsigned nw, unsigned nv)
{
    if (Reason why = too_many("direction values", nw, nv)) return why;
    if (!row_order || nv <= nw) return {};
    return message("nv is ", nv, ", row order carries nw = ", nw, " directions");
}

Reason empty_batch(const Batch& batch)
{
    if (batch.rows != 0) return {};
    return "the batch has 0 rows, needs at least 1";
}

Reason unfit_for_residuals(const VEMKNInfo* net, std::optional<unsigned> nw, const Batch& batch)
{
    if (Reason why = unusable_network(net)) return why;
    return unfit_counts(net, nw, batch);
}

Reason unfit_for_norms(const VEMKNInfo* net, std::optional<unsigned> nw, const Batch& batch)
{
    if (Reason why = unusable_network(net)) return why;
    if (Reason why = no_norm(net)) return why;
    return unfit_counts(net, nw, batch);
}

int refuse(const char* entry, const Reason& why)
{
    write_error(message(entry, ": refused: ", *why, "\n"));
    return REFUSED;
}

}  // namespace VEMKN
