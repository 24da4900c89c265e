#pragma once

#include <algorithm>
#include <type_traits>

#include "kernels/kernels.h"
#include "kernels/lane.h"

// Products in register tiles, lanes along the columns of C. Each element of C is one chain of fused multiply-adds over the
// inner dimension in ascending order, whatever the tile, so its bits depend on its row of A and its column of B alone: rows
// and columns may change places.
//
// No lane computes anything but an element of C: where columns do not fill the last register of a tile, it begins earlier
// and forms some of them once more, or repeats the last one. So no exception is raised that the chains themselves do not
// raise.

namespace VEMKN {
namespace {

template <class L>
constexpr std::size_t width = static_cast<std::size_t>(L::WIDTH);

#if HWY_TARGET <= HWY_AVX3 || HWY_TARGET == HWY_NEON
inline constexpr bool HAS_32_REGISTERS = true;
#else
inline constexpr bool HAS_32_REGISTERS = false;
#endif

// The columns of a tile: registers one behind the other from column `first` on, but for the last one, which begins at
// first + last. Where columns are fewer than a register, `count` of them.
struct Columns {
    std::size_t first, last, count;
};

// How a register of columns lies in memory: neighbours, or `step` apart; all of it, or the first `count`, the last of them
// repeated in the lanes beyond.
template <class L, bool DENSE, bool WHOLE>
struct Access {
    using V = typename L::V;
    std::size_t step, count;

    [[gnu::always_inline]] V load(const double* from) const
    {
        if constexpr (DENSE && WHOLE) {
            return L::load(from);
        } else if constexpr (DENSE) {
            return L::load_part(from, static_cast<int>(count), L::set(from[count - 1]));
        } else {
            double all[width<L>];
            for (std::size_t i = 0; i < width<L>; ++i) all[i] = from[std::min(i, count - 1) * step];
            return L::load(all);
        }
    }

    [[gnu::always_inline]] void store(double* to, V v) const
    {
        if constexpr (DENSE && WHOLE) {
            L::store(to, v);
        } else {
            double all[width<L>];
            L::store(all, v);
            for (std::size_t i = 0; i < (WHOLE ? width<L> : count); ++i)
                to[i * (DENSE ? 1 : step)] = all[i];
        }
    }
};

// The chains of a tile where columns of B are neighbours in memory.
template <class L, bool WHOLE>
struct AlongRows {
    static constexpr bool ALONG_ROWS = true;

    template <int ROWS, int REGISTERS>
    [[gnu::always_inline]] static void add(const ProductOf& p,
                                           const double* a,
                                           Columns at,
                                           typename L::V (&sums)[ROWS][REGISTERS])
    {
        using V = typename L::V;
        const std::size_t a_row = p.a_row, a_inner = p.a_inner, b_inner = p.b_inner;
        const Access<L, true, WHOLE> in_b{1, at.count};
        const double* b = p.b + at.first;
        for (std::size_t l = p.inner; l > 0; --l, a += a_inner, b += b_inner) {
            V of_b[REGISTERS];
            for (int j = 0; j < REGISTERS - 1; ++j) of_b[j] = L::load(b + j * L::WIDTH);
            of_b[REGISTERS - 1] = in_b.load(b + at.last);
            for (int r = 0; r < ROWS; ++r) {
                const V of_a = L::set(a[static_cast<std::size_t>(r) * a_row]);
                for (int j = 0; j < REGISTERS; ++j)
                    sums[r][j] = L::multiply_add(of_a, of_b[j], sums[r][j]);
            }
        }
    }
};

// The same where elements of a column of B are neighbours in memory: squares of B are transposed.
template <class L, bool WHOLE>
struct AlongColumns {
    static constexpr bool ALONG_ROWS = false;

    template <int ROWS, int REGISTERS>
    [[gnu::always_inline]] static void add(const ProductOf& p,
                                           const double* a,
                                           Columns at,
                                           typename L::V (&sums)[ROWS][REGISTERS])
    {
        using V = typename L::V;
        constexpr std::size_t SIDE = width<L>;
        const std::size_t pitch = p.b_col;
        const double* b = p.b + at.first * pitch;
        // A number of A serves as many squares as there are registers for.
        constexpr int TOGETHER = HAS_32_REGISTERS && REGISTERS % 2 == 0 ? 2 : 1;
        const auto multiply = [&](const V(&squares)[TOGETHER][SIDE], int first, std::size_t n) {
            for (std::size_t s = 0; s < SIDE; ++s) {
                if (s >= n) return;
                for (int r = 0; r < ROWS; ++r) {
                    const V of_a = L::set(a[static_cast<std::size_t>(r) * p.a_row + s * p.a_inner]);
                    for (int j = 0; j < TOGETHER; ++j) {
                        V& sum = sums[r][first + j];
                        sum = L::multiply_add(of_a, squares[j][s], sum);
                    }
                }
            }
        };
        const auto column = [&](int j, std::size_t i) {
            return b +
                   (static_cast<std::size_t>(j) * SIDE + (WHOLE ? i : std::min(i, at.count - 1))) *
                       pitch;
        };
        std::size_t rest = p.inner;
        for (; rest >= SIDE; rest -= SIDE, a += SIDE * p.a_inner, b += SIDE) {
            for (int first = 0; first < REGISTERS; first += TOGETHER) {
                V squares[TOGETHER][SIDE];
                for (int j = 0; j < TOGETHER; ++j) {
                    L::load_transposed([&](std::size_t i) { return column(first + j, i); },
                                       squares[j]);
                }
                multiply(squares, first, SIDE);
            }
        }
        if (rest == 0) return;
        for (int first = 0; first < REGISTERS; first += TOGETHER) {
            V squares[TOGETHER][SIDE];
            for (int j = 0; j < TOGETHER; ++j) {
                for (std::size_t i = 0; i < SIDE; ++i) {
                    squares[j][i] =
                        L::load_part(column(first + j, i), static_cast<int>(rest), L::set(0.0));
                }
                L::transpose(squares[j]);
            }
            multiply(squares, first, rest);
        }
    }
};

template <class L, class Chains, int ROWS, int REGISTERS, class InC>
[[gnu::always_inline]] inline void tile(const ProductOf& p, std::size_t row, Columns at, InC in_c)
{
    using V = typename L::V;
    double* const c = p.c + row * p.c_row + at.first * p.c_col;
    const std::size_t c_row = p.c_row, last = at.last * p.c_col;
    V sums[ROWS][REGISTERS];
    const auto for_each = [&](const auto& body) {
        for (int r = 0; r < ROWS; ++r) {
            for (int j = 0; j < REGISTERS; ++j) {
                const std::size_t offset =
                    j < REGISTERS - 1 ? static_cast<std::size_t>(j) * width<L> * p.c_col : last;
                body(c + static_cast<std::size_t>(r) * c_row + offset, sums[r][j]);
            }
        }
    };
    if (p.into == Into::go_on) {
        for_each([&](const double* from, V& sum) { sum = in_c.load(from); });
    } else {
        for_each([&](const double*, V& sum) { sum = L::set(0.0); });
    }
    Chains::template add<ROWS, REGISTERS>(p, p.a + row * p.a_row, at, sums);
    if (p.into == Into::add) {
        for_each([&](const double* from, V& sum) { sum = in_c.load(from) + sum; });
    }
    for_each([&](double* to, V sum) { in_c.store(to, sum); });
}

// Most rows of a tile: its sums, a register row of B and a number of A fill the registers that there are.
constexpr int most_rows(int registers)
{
    if (HAS_32_REGISTERS) return 8;
    return registers == 1 ? 8 : registers == 2 ? 6 : 4;
}

template <class L, class Chains, int ROWS, int REGISTERS, class InC>
[[gnu::always_inline]] inline void tile_of_rows(
    const ProductOf& p, std::size_t row, std::size_t rows, Columns at, InC in_c)
{
    if constexpr (ROWS > 1) {
        if (rows < ROWS)
            return tile_of_rows<L, Chains, ROWS - 1, REGISTERS>(p, row, rows, at, in_c);
    }
    tile<L, Chains, ROWS, REGISTERS>(p, row, at, in_c);
}

// body(PARTS, first, n) for terms that are cut into parts, AT_ONCE parts at a time while there are as many of full length, then one
// by one; each has n of the terms, the first of them from term `first` on.
template <std::size_t AT_ONCE, class Body>
[[gnu::always_inline]] inline void for_parts(std::size_t terms, std::size_t part, const Body& body)
{
    std::size_t first = 0;
    for (; AT_ONCE > 1 && first + AT_ONCE * part <= terms; first += AT_ONCE * part) {
        body(std::integral_constant<std::size_t, AT_ONCE>(), first, part);
    }
    for (; first < terms; first += part) {
        body(std::integral_constant<std::size_t, 1>(), first, std::min(part, terms - first));
    }
}

// Adds the products of neighbouring parts of `inner` terms each, one tile of few chains. A term of a chain waits for the one before
// it: those of several parts run side by side.
template <class L, std::size_t PARTS, std::size_t ROWS, std::size_t REGISTERS, class InB, class InC>
void add_parts(const ProductOf& p, Columns at, InB in_b, InC in_c)
{
    using V = typename L::V;
    const auto offset = [&](std::size_t j) { return j < REGISTERS - 1 ? j * width<L> : at.last; };
    V sums[PARTS][ROWS][REGISTERS];
    for (std::size_t i = 0; i < PARTS; ++i) {
        for (std::size_t r = 0; r < ROWS; ++r) {
            for (std::size_t j = 0; j < REGISTERS; ++j) sums[i][r][j] = L::set(0.0);
        }
    }
    const double* a = p.a;
    const double* b = p.b + at.first;
    for (std::size_t l = 0; l < p.inner; ++l, a += p.a_inner, b += p.b_inner) {
        for (std::size_t i = 0; i < PARTS; ++i) {
            for (std::size_t j = 0; j < REGISTERS; ++j) {
                const V of_b = in_b.load(b + i * p.inner * p.b_inner + offset(j));
                for (std::size_t r = 0; r < ROWS; ++r) {
                    const V of_a = L::set(a[i * p.inner * p.a_inner + r * p.a_row]);
                    sums[i][r][j] = L::multiply_add(of_a, of_b, sums[i][r][j]);
                }
            }
        }
    }
    for (std::size_t i = 0; i < PARTS; ++i) {
        const auto at_c = [&](std::size_t r, std::size_t j) {
            return p.c + r * p.c_row + (at.first + offset(j)) * p.c_col;
        };
        // Registers may overlap: all are read before any is written.
        for (std::size_t r = 0; r < ROWS; ++r) {
            for (std::size_t j = 0; j < REGISTERS; ++j)
                sums[i][r][j] = in_c.load(at_c(r, j)) + sums[i][r][j];
        }
        for (std::size_t r = 0; r < ROWS; ++r) {
            for (std::size_t j = 0; j < REGISTERS; ++j) in_c.store(at_c(r, j), sums[i][r][j]);
        }
    }
}

// All rows of some columns, in tiles that are as even as can be.
template <class L, class Chains, int MOST, int REGISTERS, bool DENSE, bool WHOLE>
[[gnu::noinline]] void all_rows_of(const ProductOf& p, Columns at)
{
    std::size_t tiles = (p.rows + MOST - 1) / MOST;
    for (std::size_t row = 0; row < p.rows; --tiles) {
        const std::size_t rows = (p.rows - row + tiles - 1) / tiles;
        tile_of_rows<L, Chains, MOST, REGISTERS>(
            p, row, rows, at, Access<L, DENSE, WHOLE>{p.c_col, at.count});
        row += rows;
    }
}

// Adds the products of all parts. Apart from what forms one product, which is called more often.
template <class L, class Chains, int MOST, int REGISTERS, bool DENSE, bool WHOLE>
[[gnu::noinline]] void add_all_parts(const ProductOf& p, Columns at)
{
    const auto in_tiles = [&](auto rows) {
        constexpr std::size_t ROWS = rows(), AT_ONCE = ROWS == 0               ? 1
                                                       : ROWS * REGISTERS <= 2 ? 3
                                                                               : 2;
        for_parts<AT_ONCE>(p.inner, p.part, [&](auto parts, std::size_t first, std::size_t terms) {
            ProductOf part = p;
            part.a += first * p.a_inner;
            part.b += first * p.b_inner;
            part.inner = terms;
            if constexpr (parts() == 1) {
                all_rows_of<L, Chains, MOST, REGISTERS, DENSE, WHOLE>(part, at);
            } else {
                const Access<L, true, WHOLE> in_b{1, at.count};
                const Access<L, DENSE, WHOLE> in_c{p.c_col, at.count};
                add_parts<L, parts(), ROWS, REGISTERS>(part, at, in_b, in_c);
            }
        });
    };
    if constexpr (Chains::ALONG_ROWS && REGISTERS <= 2) {
        if (p.rows == 1) return in_tiles(std::integral_constant<std::size_t, 1>());
        if (p.rows == 2) return in_tiles(std::integral_constant<std::size_t, 2>());
    }
    in_tiles(std::integral_constant<std::size_t, 0>());
}

template <class L, template <class, bool> class Chains, int MOST, int REGISTERS, bool WHOLE>
void all_rows(const ProductOf& p, Columns at)
{
    const bool in_parts = p.into == Into::add && p.part < p.inner;
    if (p.c_col == 1) {
        constexpr auto whole = all_rows_of<L, Chains<L, WHOLE>, MOST, REGISTERS, true, WHOLE>;
        constexpr auto parts = add_all_parts<L, Chains<L, WHOLE>, MOST, REGISTERS, true, WHOLE>;
        in_parts ? parts(p, at) : whole(p, at);
    } else {
        constexpr auto whole = all_rows_of<L, Chains<L, WHOLE>, MOST, REGISTERS, false, WHOLE>;
        constexpr auto parts = add_all_parts<L, Chains<L, WHOLE>, MOST, REGISTERS, false, WHOLE>;
        in_parts ? parts(p, at) : whole(p, at);
    }
}

// The last tile has more than one register, if it can, since its registers may overlap one another, but not those of another
// tile: what they add to would be added to twice.
template <class L>
void along_rows(const ProductOf& p)
{
    constexpr std::size_t W = width<L>;
    // Rows of B whose registers stay in the innermost cache while tiles go down.
    constexpr std::size_t LONGEST = 128;
    if (p.cols < W) return all_rows<L, AlongRows, most_rows(1), 1, false>(p, {0, 0, p.cols});
    for (std::size_t col = 0; col < p.cols;) {
        const std::size_t left = p.cols - col, registers = (left + W - 1) / W;
        const std::size_t used = registers == 4 ? 2 : std::min<std::size_t>(registers, 3);
        const Columns at{col, used == registers ? left - W : (used - 1) * W, W};
        const auto some_of_inner = [&](const ProductOf& part) {
            if (used == 3) {
                all_rows<L, AlongRows, most_rows(3), 3, true>(part, at);
            } else if (used == 2) {
                all_rows<L, AlongRows, most_rows(2), 2, true>(part, at);
            } else {
                all_rows<L, AlongRows, most_rows(1), 1, true>(part, at);
            }
        };
        if (p.into == Into::add || p.inner <= LONGEST) {
            some_of_inner(p);
        } else {
            ProductOf part = p;
            for (std::size_t first = 0; first < p.inner; first += LONGEST) {
                part.a = p.a + first * p.a_inner;
                part.b = p.b + first * p.b_inner;
                part.inner = std::min(LONGEST, p.inner - first);
                if (first > 0) part.into = Into::go_on;
                some_of_inner(part);
            }
        }
        col += used * W;
    }
}

template <class L>
void along_columns(const ProductOf& p)
{
    constexpr std::size_t W = width<L>;
    const int at_once = p.rows > 2 ? 2 : 4;
    const auto at = [](std::size_t first, int registers, std::size_t count) {
        return Columns{first, static_cast<std::size_t>(registers - 1) * W, count};
    };
    std::size_t col = 0;
    const std::size_t step = static_cast<std::size_t>(at_once) * W;
    for (; col + step <= p.cols; col += step) {
        if (at_once == 2) {
            all_rows<L, AlongColumns, 4, 2, true>(p, at(col, 2, W));
        } else {
            all_rows<L, AlongColumns, 2, 4, true>(p, at(col, 4, W));
        }
    }
    for (; col + W <= p.cols; col += W) all_rows<L, AlongColumns, 4, 1, true>(p, at(col, 1, W));
    if (col < p.cols) all_rows<L, AlongColumns, 4, 1, false>(p, at(col, 1, p.cols - col));
}

// The same product with rows and columns exchanged.
inline ProductOf transposed(const ProductOf& p)
{
    return {p.b,
            p.b_col,
            p.b_inner,
            p.a,
            p.a_inner,
            p.a_row,
            p.c,
            p.c_col,
            p.c_row,
            p.cols,
            p.rows,
            p.inner,
            p.into,
            p.part};
}

// Lanes along the dimension that fills them.
inline void product(const ProductOf& p)
{
    constexpr std::size_t W = width<Lane>;
    const ProductOf t = transposed(p);
    if (p.b_col == 1 && p.cols >= W) return along_rows<Lane>(p);
#if HWY_TARGET <= HWY_AVX3
    // Where 256 bits hold them, eight lanes along the other dimension are worth it for long chains only.
    using Half = LaneOf<hn::CappedTag<double, 4>>;
    const bool fills_half = p.b_col == 1 && p.cols >= width<Half>;
    if (fills_half && p.inner < 2 * W) return along_rows<Half>(p);
#endif
    if (t.b_col == 1 && t.cols >= W) return along_rows<Lane>(t);
#if HWY_TARGET <= HWY_AVX3
    if (t.b_inner == 1 && t.cols >= W) return along_columns<Lane>(t);
    if (fills_half) return along_rows<Half>(p);
    if (t.b_col == 1 && t.cols >= width<Half>) return along_rows<Half>(t);
#endif
    if (p.b_inner == 1 && p.cols >= W && p.cols >= p.rows) return along_columns<Lane>(p);
    if (t.b_inner == 1 && t.cols >= W) return along_columns<Lane>(t);
    if (p.b_inner == 1 && p.cols >= W) return along_columns<Lane>(p);
    if (p.b_col == 1) return along_rows<Lane>(p);
    if (t.b_col == 1) return along_rows<Lane>(t);
    p.b_inner == 1 ? along_columns<Lane>(p) : along_columns<Lane>(t);
}

}  // namespace
}  // namespace VEMKN
