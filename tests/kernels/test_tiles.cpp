#include <gtest/gtest.h>

#include <algorithm>
#include <cfenv>
#include <cmath>

#include "kernels/kernels.h"
#include "support/fp_state.h"
#include "support/guarded.h"
#include "support/instruction_sets.h"
#include "support/numbers.h"
#include "support/random.h"

using namespace VEMKN;

namespace {

// What an element of C has to be: one chain over some of the inner dimension.
double chain(Guarded& A,
             Guarded& B,
             std::size_t i,
             std::size_t j,
             std::size_t first,
             std::size_t last,
             double from,
             bool fused)
{
    for (std::size_t l = first; l < last; ++l) {
        if (fused) {
            from = std::fma(A(i, l), B(l, j), from);
        } else {
            from += A(i, l) * B(l, j);
        }
    }
    return from;
}

constexpr Layout LAYOUTS[] = {
    Layout::rows, Layout::columns, Layout::rows_apart, Layout::columns_apart};
constexpr Layout RESULTS[] = {Layout::rows, Layout::rows_apart};
constexpr Into INTOS[] = {Into::overwrite, Into::add, Into::go_on};

class Tiles : public testing::TestWithParam<InstructionSet> {
protected:
    const Kernels& k = kernels_of(GetParam());

    // C for factors and contents drawn, to the bit, with no exception but those of the chains.
    template <class Draw>
    void check(std::size_t m,
               std::size_t n,
               std::size_t inner,
               Layout a,
               Layout b,
               Layout c,
               Into into,
               const Draw& draw,
               std::size_t part = 1000)
    {
        part = std::min(part, inner);
        SCOPED_TRACE(testing::Message()
                     << m << " x " << n << ", inner " << inner << ", layouts "
                     << static_cast<int>(a) << static_cast<int>(b) << static_cast<int>(c)
                     << ", into " << static_cast<int>(into) << ", parts of " << part);
        const bool fused = is_fused(GetParam());
        for (const bool at_the_end : {false, true}) {
            Guarded A(m, inner, a, at_the_end), B(inner, n, b, at_the_end), C(m, n, c, at_the_end);
            A.fill(draw);
            B.fill(draw);
            if (into != Into::overwrite) C.fill(draw);
            Numbers expected(m * n);
            std::feclearexcept(FE_ALL_EXCEPT);
            for (std::size_t i = 0; i < m; ++i) {
                for (std::size_t j = 0; j < n; ++j) {
                    double& sum = expected[i * n + j];
                    if (into != Into::add) {
                        const double from = into == Into::go_on ? C(i, j) : 0.0;
                        sum = chain(A, B, i, j, 0, inner, from, fused);
                        continue;
                    }
                    sum = C(i, j);
                    for (std::size_t first = 0; first < inner; first += part) {
                        const std::size_t last = std::min(first + part, inner);
                        sum += chain(A, B, i, j, first, last, 0.0, fused);
                    }
                }
            }
            const int chains_raise = std::fetestexcept(LIBRARY_TRAPS);
            std::feclearexcept(FE_ALL_EXCEPT);
            k.product({A.data(),
                       A.row(),
                       A.col(),
                       B.data(),
                       B.row(),
                       B.col(),
                       C.data(),
                       C.row(),
                       C.col(),
                       m,
                       n,
                       inner,
                       into,
                       part});
            EXPECT_EQ(chains_raise, std::fetestexcept(LIBRARY_TRAPS));
            Numbers found(m * n);
            for (std::size_t i = 0; i < m; ++i) {
                for (std::size_t j = 0; j < n; ++j) found[i * n + j] = C(i, j);
            }
            // Which NaN it is depends on the order of operands.
            for (Numbers* list : {&expected, &found}) {
                for (double& x : *list) x = std::isnan(x) ? QUIET_NAN : x;
            }
            ASSERT_EQ(bits_of(expected), bits_of(found));
        }
    }
};

}  // namespace

TEST_P(Tiles, FormOneChainForEveryElement)
{
    Random random(17);
    const auto draw = [&] { return random.list(1)[0]; };
    // Around the widths of registers and the heights of tiles.
    for (const std::size_t m : {1u, 2u, 3u, 4u, 5u, 8u, 9u, 13u, 17u, 33u}) {
        for (const std::size_t n : {1u, 2u, 3u, 4u, 5u, 7u, 8u, 9u, 13u, 16u, 17u, 25u, 33u}) {
            for (const std::size_t inner : {1u, 4u, 5u, 8u, 19u}) {
                for (const Layout a : LAYOUTS) {
                    for (const Layout b : LAYOUTS) {
                        check(m, n, inner, a, b, RESULTS[inner % 2], INTOS[(m + n) % 3], draw);
                    }
                }
                const Layout a = LAYOUTS[(m + inner) % 4], b = LAYOUTS[(n + inner) % 4];
                for (const Layout c : RESULTS) {
                    for (const Into into : INTOS) check(m, n, inner, a, b, c, into, draw);
                }
            }
        }
    }
}

TEST_P(Tiles, AddPartsOneAfterTheOther)
{
    Random random(21);
    const auto draw = [&] { return random.list(1)[0]; };
    for (const std::size_t m : {1u, 2u, 3u, 5u, 9u}) {
        for (const std::size_t n : {1u, 2u, 4u, 5u, 7u, 8u, 13u, 33u}) {
            for (const std::size_t inner : {2u, 19u, 100u, 300u}) {
                for (const std::size_t part : {1u, 3u, 32u, 99u, 100u}) {
                    for (const Layout a : LAYOUTS) {
                        for (const Layout b : LAYOUTS) {
                            const Layout c = RESULTS[(m + part) % 2];
                            check(m, n, inner, a, b, c, Into::add, draw, part);
                        }
                    }
                }
            }
        }
    }
}

// Long chains are formed in chunks of the inner dimension.
TEST_P(Tiles, GoOnFromChunkToChunk)
{
    Random random(20);
    const auto draw = [&] { return random.list(1)[0]; };
    for (const std::size_t inner : {127u, 128u, 129u, 256u, 257u, 300u}) {
        for (const std::size_t m : {1u, 5u, 33u}) {
            for (const std::size_t n : {1u, 4u, 9u, 33u}) {
                for (const Into into : INTOS) {
                    const std::size_t turn = m + n + inner;
                    check(m,
                          n,
                          inner,
                          LAYOUTS[turn % 4],
                          LAYOUTS[turn / 4 % 4],
                          RESULTS[turn % 2],
                          into,
                          draw);
                }
            }
        }
    }
}

// Infinite and huge factors beside ordinary ones: what a lane beyond the last column would meet is a zero, or another row.
TEST_P(Tiles, RaiseWhatTheirChainsRaise)
{
    Random random(18);
    int turn = 0;
    const auto draw = [&] {
        ++turn;
        return turn % 41 == 0   ? INF
               : turn % 29 == 0 ? 1e300
               : turn % 17 == 0 ? 0.0
                                : random.list(1)[0];
    };
    for (const std::size_t m : {1u, 2u, 3u, 5u, 8u, 9u}) {
        for (const std::size_t n : {1u, 2u, 3u, 5u, 8u, 9u, 13u}) {
            for (const std::size_t inner : {1u, 3u, 5u, 9u}) {
                for (const Layout a : LAYOUTS) {
                    for (const Layout b : LAYOUTS) {
                        for (const Into into : INTOS)
                            check(m, n, inner, a, b, Layout::rows, into, draw);
                        check(m, n, inner, a, b, Layout::rows, Into::add, draw, 2);
                    }
                }
            }
        }
    }
}

// A row among others and a column among others are what they are alone, whichever register and tile they fall into.
TEST_P(Tiles, GiveARowTheSameBitsInAnyCompany)
{
    Random random(19);
    const std::size_t m = 37, n = 29, inner = 21;
    const Numbers A = random.list(m * inner), B = random.list(inner * n);
    Numbers all(m * n);
    k.product({A.data(),
               inner,
               1,
               B.data(),
               n,
               1,
               all.data(),
               n,
               1,
               m,
               n,
               inner,
               Into::overwrite,
               inner});
    for (std::size_t first = 0; first < m; first += 5) {
        for (std::size_t rows = 1; first + rows <= m; rows += 4) {
            for (std::size_t cols = 1; cols <= n; cols += 3) {
                Numbers part(rows * cols);
                k.product({A.data() + first * inner,
                           inner,
                           1,
                           B.data() + (n - cols),
                           n,
                           1,
                           part.data(),
                           cols,
                           1,
                           rows,
                           cols,
                           inner,
                           Into::overwrite,
                           inner});
                for (std::size_t i = 0; i < rows; ++i) {
                    for (std::size_t j = 0; j < cols; ++j) {
                        ASSERT_EQ(all[(first + i) * n + (n - cols) + j], part[i * cols + j]);
                    }
                }
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(EveryInstructionSet,
                         Tiles,
                         testing::ValuesIn(available_instruction_sets()),
                         [](const auto& set) { return std::string(kernels_of(set.param).name); });
