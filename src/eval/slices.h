#pragma once

#include <algorithm>

#include "model/matrix.h"

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

    std::size_t count() const { return (rows_ + batch_ - 1) / batch_; }

    std::size_t first_row(std::size_t slice) const
    {
        return slice == 0 ? 0 : slice * batch_ - missing_in_first_;
    }

    std::size_t rows_of(std::size_t slice) const
    {
        return std::min((slice + 1) * batch_ - missing_in_first_, rows_) - first_row(slice);
    }

    RowsView cut(const RowsView& whole, std::size_t slice) const
    {
        return whole.slice(first_row(slice), rows_of(slice));
    }

private:
    std::size_t rows_;
    std::size_t batch_;
    std::size_t missing_in_first_ = 0;
};

}  // namespace VEMKN
