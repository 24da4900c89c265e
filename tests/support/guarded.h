#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <limits>

// Which elements of a matrix are neighbours in memory: those of a row or of a column; with gaps between rows, or columns.
enum class Layout { rows, columns, rows_apart, columns_apart };

// A matrix whose elements end where a page that nobody may touch begins, or begin where one ends; what lies between its
// elements is a signaling NaN, so that whoever computes with it by accident raises an exception.
class Guarded {
public:
    Guarded(std::size_t rows, std::size_t cols, Layout layout, bool at_the_end)
        : rows_(rows), cols_(cols)
    {
        const bool along_rows = layout == Layout::rows || layout == Layout::rows_apart;
        const std::size_t gap = layout == Layout::rows || layout == Layout::columns ? 0 : 3;
        row_ = along_rows ? cols + gap : 1;
        col_ = along_rows ? 1 : rows + gap;
        const std::size_t used = rows * cols == 0 ? 0 : (rows - 1) * row_ + (cols - 1) * col_ + 1;
        const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        const std::size_t inside = (used * sizeof(double) / page + 1) * page;
        length_ = inside + 2 * page;
        map_ = static_cast<char*>(
            mmap(nullptr, length_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        if (map_ == MAP_FAILED || mprotect(map_ + page, inside, PROT_READ | PROT_WRITE) != 0)
            std::abort();
        auto* const room = static_cast<double*>(static_cast<void*>(map_ + page));
        std::fill_n(room, inside / sizeof(double), std::numeric_limits<double>::signaling_NaN());
        data_ = at_the_end ? room + inside / sizeof(double) - used : room;
    }

    ~Guarded() { munmap(map_, length_); }

    Guarded(const Guarded&) = delete;
    Guarded& operator=(const Guarded&) = delete;

    double& operator()(std::size_t r, std::size_t c) { return data_[r * row_ + c * col_]; }

    template <class Draw>
    void fill(const Draw& draw)
    {
        for (std::size_t r = 0; r < rows_; ++r) {
            for (std::size_t c = 0; c < cols_; ++c) (*this)(r, c) = draw();
        }
    }

    double* data() { return data_; }

    // From an element to the next below it, and to the next beside it.
    std::size_t row() const { return row_; }

    std::size_t col() const { return col_; }

private:
    std::size_t rows_, cols_, row_, col_, length_;
    char* map_;
    double* data_;
};
