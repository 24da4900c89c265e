#pragma once

#include <algorithm>

#include "model/matrix.h"

namespace VEMKN {

// Rows that go through together where no slice size matters: their intermediates stay in cache.
inline constexpr std::int32_t ROWS_OF_A_CHUNK = 64;

// Rows cut into chunks from the last to the first, which holds the remainder.
class ChunksFromTheEnd {
public:
    explicit ChunksFromTheEnd(std::size_t rows) : rows_(rows) {}

    std::size_t count() const { return (rows_ + LENGTH - 1) / LENGTH; }

    std::size_t first_row(std::size_t chunk) const { return end(chunk) - rows_of(chunk); }

    std::size_t rows_of(std::size_t chunk) const { return std::min(LENGTH, end(chunk)); }

    RowsView cut(const RowsView& whole, std::size_t chunk) const
    {
        return whole.slice(first_row(chunk), rows_of(chunk));
    }

private:
    static constexpr std::size_t LENGTH = ROWS_OF_A_CHUNK;

    std::size_t end(std::size_t chunk) const { return rows_ - chunk * LENGTH; }

    std::size_t rows_;
};

// Rows cut into slices of `batch` rows; the last one holds the remainder.
class Slices {
public:
    Slices(std::size_t rows, std::int32_t batch)
        : rows_(rows), batch_(static_cast<std::size_t>(batch))
    {
    }

    // One slice, so nothing is split and no team is opened.
    bool single() const { return batch_ >= rows_; }

    std::size_t count() const { return (rows_ + batch_ - 1) / batch_; }

    std::size_t first_row(std::size_t slice) const { return slice * batch_; }

    std::size_t rows_of(std::size_t slice) const
    {
        return std::min(batch_, rows_ - first_row(slice));
    }

    RowsView cut(const RowsView& whole, std::size_t slice) const
    {
        return whole.slice(first_row(slice), rows_of(slice));
    }

private:
    std::size_t rows_;
    std::size_t batch_;
};

}  // namespace VEMKN
