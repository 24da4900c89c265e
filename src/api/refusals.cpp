#include "api/refusals.h"

#include "api/messages.h"
#include "api/params.h"

namespace VEMKN {

template <class... Parts>
bool Refusal::refuse(const Parts&... parts) const
{
    write_error(message(entry_, ": refused: ", parts..., "\n"));
    return true;
}

bool Refusal::null_handle() const
{
    return net_ == nullptr && refuse("the handle is null");
}

bool Refusal::network() const
{
    if (null_handle()) return true;
    const DoubleModel& m = net_->model;
    if (m.weights.size() < 2) {
        return refuse("the network has ", m.weights.size(), " layers, needs at least 2");
    }
    const std::size_t first = m.weights.front().rows();
    const std::size_t last_hidden = m.biases[m.biases.size() - 2].size();
    return m.nmult > 1 && last_hidden != first &&
           refuse("nmult is ",
                  m.nmult,
                  " and the last hidden width ",
                  last_hidden,
                  " differs from the first size ",
                  first);
}

bool Refusal::norm() const
{
    return !net_->model.summing_norm.is_set() &&
           refuse("the network has no norm, its norm name is \"", net_->model.norm_name, "\"");
}

bool Refusal::weight_count(unsigned nw, const char* name) const
{
    const std::uint64_t needed = numel(net_->model);
    return nw != needed && refuse(name, " is ", nw, ", the network has ", needed, " parameters");
}

bool Refusal::residuals(unsigned nrows, unsigned ycols) const
{
    const unsigned numout = net_->model.numout;
    if (ycols != numout) {
        return refuse("the targets have ", ycols, " columns, the network ", numout, " outputs");
    }
    return too_many("residuals", nrows, ycols);
}

bool Refusal::too_many(const char* what, std::uint64_t a, std::uint64_t b, std::uint64_t c) const
{
    constexpr std::uint64_t limit = std::uint64_t{1} << 32;
    const std::uint64_t all = a * b * c;
    return all >= limit && refuse("the number of ", what, ", ", all, ", is not below ", limit);
}

bool Refusal::directions(bool row_order, unsigned nw, unsigned nv) const
{
    if (too_many("direction values", nw, nv)) return true;
    return row_order && nv > nw &&
           refuse("nv is ", nv, ", row order carries nw = ", nw, " directions");
}

bool Refusal::empty_batch(unsigned nrows) const
{
    return nrows == 0 && refuse("the batch has 0 rows, needs at least 1");
}

}  // namespace VEMKN
