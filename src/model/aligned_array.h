#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <utility>

#include "runtime/call_memory.h"

namespace VEMKN {

// Doubles to compute with. Their storage begins where a cache line does, so that a load of a whole vector register
// touches one line: operator new promises a quarter of that. And it stays when fewer elements are wanted, as for the
// last slice of a batch. It is the call's (runtime/call_memory.h), or outside of calls the array's own; copied by value.
class AlignedArray {
public:
    AlignedArray() = default;

    // Zeros.
    explicit AlignedArray(std::size_t n)
    {
        set_size(n);
        *this = 0.0;
    }

    AlignedArray(const double* from, std::size_t n)
    {
        set_size(n);
        std::copy_n(from, n, first_);
    }

    AlignedArray(const AlignedArray& other) : AlignedArray(other.first_, other.size_) {}

    AlignedArray(AlignedArray&& other) noexcept { swap(other); }

    AlignedArray& operator=(const AlignedArray& other)
    {
        set_size(other.size_);
        if (this != &other) std::copy_n(other.first_, size_, first_);
        return *this;
    }

    AlignedArray& operator=(AlignedArray&& other) noexcept
    {
        swap(other);
        return *this;
    }

    ~AlignedArray() = default;

    // Every element gets that value.
    AlignedArray& operator=(double value)
    {
        std::fill_n(first_, size_, value);
        return *this;
    }

    // Takes n elements; they are without contents when their number changes.
    void set_size(std::size_t n)
    {
        if (n > capacity_) {
            if (n > PTRDIFF_MAX / sizeof(double) - PER_LINE) throw std::bad_alloc();
            if (in_call_memory()) {
                first_ = static_cast<double*>(take_call_memory(n * sizeof(double)));
                own_.reset();
            } else {
                take_own(n);
            }
            capacity_ = n;
        }
        size_ = n;
    }

    std::size_t size() const { return size_; }

    double* begin() { return first_; }

    const double* begin() const { return first_; }

    double* end() { return first_ + size_; }

    const double* end() const { return first_ + size_; }

    double& operator[](std::size_t i) { return first_[i]; }

    const double& operator[](std::size_t i) const { return first_[i]; }

private:
    static constexpr std::size_t PER_LINE = CACHE_LINE / sizeof(double);

    void take_own(std::size_t n)
    {
        own_.reset(new double[n + PER_LINE - 1]);
        const auto address = reinterpret_cast<std::uintptr_t>(own_.get());
        first_ = own_.get() + (CACHE_LINE - address % CACHE_LINE) % CACHE_LINE / sizeof(double);
    }

    void swap(AlignedArray& other) noexcept
    {
        std::swap(own_, other.own_);
        std::swap(first_, other.first_);
        std::swap(size_, other.size_);
        std::swap(capacity_, other.capacity_);
    }

    std::unique_ptr<double[]> own_;
    double* first_ = nullptr;
    std::size_t size_ = 0;
    std::size_t capacity_ = 0;
};

}  // namespace VEMKN
