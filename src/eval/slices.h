#pragma once

#include <algorithm>

#include "model/blas.h"

namespace VEMKN {

// Rows that go through together where no slice size matters: their intermediates stay in cache.
inline constexpr std::int32_t ROWS_OF_A_CHUNK = 64;

enum class Remainder { first, last };

// Rows cut into slices of `batch` rows; the first or the last one holds the remainder.
class Slices {
public:
    Slices(std::size_t rows, std::int32_t batch, Remainder remainder = Remainder::last)
        : rows_(rows), batch_(static_cast<std::size_t>(batch))
    {
        if (remainder == Remainder::first) missing_in_first_ = count() * batch_ - rows_;
    }

    // One slice, so nothing is split and no team is opened.
    bool single() const { return batch_ >= rows_; }

    std::size_t rows() const { return rows_; }

    // Of a slice.
    std::size_t most_rows() const { return std::min(batch_, rows_); }

    std::size_t count() const { return (rows_ + batch_ - 1) / batch_; }

    std::size_t first_row(std::size_t slice) const
    {
        return slice == 0 ? 0 : slice * batch_ - missing_in_first_;
    }

    std::size_t rows_of(std::size_t slice) const
    {
        return std::min((slice + 1) * batch_ - missing_in_first_, rows_) - first_row(slice);
    }

    RowRange rows(std::size_t slice) const { return {first_row(slice), rows_of(slice)}; }

    // Neighbouring slices.
    RowRange rows(std::size_t first, std::size_t n) const
    {
        const std::size_t last = first + n - 1;
        return {first_row(first), first_row(last) + rows_of(last) - first_row(first)};
    }

    RowsView cut(const RowsView& whole, std::size_t slice) const
    {
        return whole.slice(first_row(slice), rows_of(slice));
    }

    RowsView cut(const RowsView& whole, std::size_t first, std::size_t n) const
    {
        const RowRange some = rows(first, n);
        return whole.slice(some.first, some.count);
    }

    // The same slices of a batch without the rows of others; the remainder is last.
    Slices part(std::size_t first, std::size_t n) const
    {
        return {rows(first, n).count, static_cast<std::int32_t>(batch_)};
    }

private:
    std::size_t rows_;
    std::size_t batch_;
    std::size_t missing_in_first_ = 0;
};

// Numbers that a sweep keeps for each output of a layer: the pre-activation, what the activation saves, the output, and its adjoint.
// An evaluation keeps the output alone, but is to stay in the innermost cache, about an eighth of the one that sweeps live in.
inline constexpr std::size_t SWEPT_FOR_AN_OUTPUT = 4, EVALUATED_FOR_AN_OUTPUT = 8;

// Rows of which the inner caches hold what is computed of them.
//   of_an_output : numbers that are kept for each output of a layer, with their derivatives
template <class Model>
std::size_t rows_in_cache(const Model& net, std::size_t of_an_output)
{
    constexpr std::size_t NUMBERS = 32768;
    std::size_t outputs = 0;
    for (const auto& W : net.weights) outputs += W.cols();
    return NUMBERS / std::max<std::size_t>(outputs * of_an_output, 1);
}

// How many neighbouring slices run through the network together, in products of all their rows. Rows of one product do not see
// each other, but for those of OpenBLAS, whose bits may depend on how many there are; and several passes are swept slice by
// slice.
template <class Model>
std::size_t slices_together(const Model& net, const Slices& slices, std::size_t of_an_output)
{
    if (slices.single() || net.nmult > 1 || multiplies_by_blas(net)) return 1;
    const std::size_t fit = rows_in_cache(net, of_an_output) / slices.rows_of(0);
    return std::clamp<std::size_t>(fit, 1, slices.count());
}

// The same rows in other pieces, where nothing is summed over them: smaller and larger than slices, and enough of them for a team.
template <class Model>
Slices pieces_of(const Model& net,
                 const Slices& slices,
                 std::size_t of_an_output,
                 std::size_t threads)
{
    constexpr std::size_t LEAST = 32, PIECES_OF_A_THREAD = 4;
    if (multiplies_by_blas(net)) return slices;
    const std::size_t all = slices.rows();
    const std::size_t fair = threads == 1 ? all : all / (PIECES_OF_A_THREAD * threads);
    const std::size_t fit = std::min(rows_in_cache(net, of_an_output), fair);
    return {all, static_cast<std::int32_t>(std::max(fit, LEAST))};
}

}  // namespace VEMKN
