#pragma once

#include <cstddef>
#include <type_traits>

// Walks over arrays a register at a time, for the loops of kernels/kernels.h. Internal linkage: every instruction set compiles
// its own.

namespace VEMKN {
namespace {

// The first n < WIDTH doubles of v to memory. One by one: what reads them next may read them as part of a vector, which
// has to wait long for a masked store.
template <class L>
void store_part(double* p, int n, typename L::V v)
{
    double all[L::WIDTH];
    L::store(all, v);
    for (int i = 0; i < n; ++i) p[i] = all[i];
}

// body(a, r) on WIDTH elements at a time, a[j] from in[j] and r[j] to out[j]. What remains goes through a full lane too,
// filled up with ones, so that an element gets the same bits wherever it stands. One is an argument that no function here
// raises an exception for, a density or a divisor included.
template <class L, int IN, int OUT, class Body>
[[gnu::always_inline]] inline void run(const double* const (&in)[IN],
                                       double* const (&out)[OUT],
                                       std::size_t n,
                                       Body body)
{
    using V = typename L::V;
    std::size_t i = 0;
    for (; i + L::WIDTH <= n; i += L::WIDTH) {
        V a[IN], r[OUT];
        for (int j = 0; j < IN; ++j) a[j] = L::load(in[j] + i);
        body(a, r);
        for (int j = 0; j < OUT; ++j) L::store(out[j] + i, r[j]);
    }
    if (i == n) return;
    const int rest = static_cast<int>(n - i);
    V a[IN], r[OUT];  // of their own: these stay in memory
    for (int j = 0; j < IN; ++j) a[j] = L::load_part(in[j] + i, rest, L::set(1.0));
    body(a, r);
    for (int j = 0; j < OUT; ++j) store_part<L>(out[j] + i, rest, r[j]);
}

// body(c, registers) for columns c ... of a row, as many as fit a number of registers, at most MOST; returns where the rest
// begins.
template <class L, int MOST = 4, class Body>
[[gnu::always_inline]] inline std::size_t for_each_registers(std::size_t cols, const Body& body)
{
    std::size_t c = 0;
    const auto go = [&](auto registers) {
        constexpr std::size_t COLUMNS = registers() * L::WIDTH;
        for (; c + COLUMNS <= cols; c += COLUMNS) body(c, registers);
    };
    if constexpr (MOST >= 4) go(std::integral_constant<int, 4>());
    go(std::integral_constant<int, 2>());
    go(std::integral_constant<int, 1>());
    return c;
}

}  // namespace
}  // namespace VEMKN
