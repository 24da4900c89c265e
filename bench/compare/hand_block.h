#pragma once

#include <algorithm>
#include <cstddef>
#include <new>
#include <vector>

// A block of rows, feature by feature: n features are a matrix of m rows stored column by column. With G tangents, the
// columns are in the order (feature, tangent).

namespace compare {

// Memory that begins where a cache line does: then no load of a whole register touches two.
template <class T>
struct AtCacheLine {
    using value_type = T;
    static constexpr std::align_val_t LINE{64};

    AtCacheLine() = default;

    template <class U>
    AtCacheLine(const AtCacheLine<U>&)
    {
    }

    T* allocate(std::size_t n) { return static_cast<T*>(::operator new(n * sizeof(T), LINE)); }

    void deallocate(T* p, std::size_t) { ::operator delete(p, LINE); }

    bool operator==(const AtCacheLine&) const = default;
};

using Doubles = std::vector<double, AtCacheLine<double>>;

struct Batch {
    const double* w;
    const double* x;
    const double* y;
    int rows;
};

inline int padded(int rows)
{
    return (rows + 7) / 8 * 8;
}

// Rows first ... first + rows - 1 of the batch, m of them with the padding.
struct Block {
    const Batch& batch;
    int first, rows, m;

    std::size_t size(int width) const { return static_cast<std::size_t>(m) * width; }
};

inline void clear_padding(const Block& b, double* a, int width)
{
    for (int j = 0; j < width; ++j) std::fill(a + b.size(j) + b.rows, a + b.size(j + 1), 0.0);
}

// k inputs transposed into features; zeros below the last row.
inline void load_inputs(const Block& b, int k, double* H)
{
    const double* x = b.batch.x + static_cast<std::size_t>(b.first) * k;
    int r = 0;
    for (; r + 8 <= b.rows; r += 8, x += 8 * k) {
        for (int i = 0; i < k; ++i) {
            for (int s = 0; s < 8; ++s) H[b.size(i) + r + s] = x[s * k + i];
        }
    }
    for (; r < b.rows; ++r, x += k) {
        for (int i = 0; i < k; ++i) H[b.size(i) + r] = x[i];
    }
    clear_padding(b, H, k);
}

// R = outputs - targets, n of them; zero in the padding
inline void residuals(const Block& b, const double* O, int n, double* R)
{
    const double* y = b.batch.y + static_cast<std::size_t>(b.first) * n;
    for (int j = 0; j < n; ++j) {
        for (int r = 0; r < b.rows; ++r) R[b.size(j) + r] = O[b.size(j) + r] - y[r * n + j];
    }
    clear_padding(b, R, n);
}

// n features back to row by row.
inline void put_rows(const Block& b, const double* features, int n, double* out)
{
    out += static_cast<std::size_t>(b.first) * n;
    for (int r = 0; r < b.rows; ++r) {
        for (int j = 0; j < n; ++j) out[r * n + j] = features[b.size(j) + r];
    }
}

// a *= s
inline void multiply(double* __restrict a, const double* __restrict s, std::size_t n)
{
    for (std::size_t i = 0; i < n; ++i) a[i] *= s[i];
}

// The same for G tangents in a.
inline void multiply_each(double* a, const double* s, const Block& b, int width, int G)
{
    for (int j = 0; j < width; ++j) {
        for (int d = 0; d < G; ++d) multiply(a + b.size(j * G + d), s + b.size(j), b.size(1));
    }
}

// a += s h
inline void add_product(double* __restrict a,
                        const double* __restrict s,
                        const double* __restrict h,
                        std::size_t n)
{
    for (std::size_t i = 0; i < n; ++i) a[i] += s[i] * h[i];
}

// The same for G tangents in a and h.
inline void add_products(
    double* a, const double* s, const double* h, const Block& b, int width, int G)
{
    for (int j = 0; j < width; ++j) {
        for (int d = 0; d < G; ++d) {
            const std::size_t at = b.size(j * G + d);
            add_product(a + at, s + b.size(j), h + at, b.size(1));
        }
    }
}

}  // namespace compare
