#include <gtest/gtest.h>

#include <cfenv>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "model/blas.h"
#include "support/size.h"

using namespace VEMKN;

namespace {

// Doubles between two margins of signaling NaNs and infinities: whoever computes with one of those by accident, be it
// in a vector lane that is thrown away afterwards, ends the process while traps are armed.
class Guarded {
public:
    template <class Draw>
    Guarded(std::size_t n, const Draw& draw) : numbers_(n + 2 * MARGIN), n_(n)
    {
        for (std::size_t i = 0; i < numbers_.size(); ++i) {
            const double poison = i % 2 == 0 ? std::numeric_limits<double>::infinity()
                                             : std::numeric_limits<double>::signaling_NaN();
            numbers_[i] = i < MARGIN || i >= MARGIN + n ? poison : draw();
        }
    }

    double* data() { return &numbers_[MARGIN]; }

    bool margins_untouched() const
    {
        for (std::size_t i = 0; i < MARGIN; ++i) {
            if (std::isfinite(numbers_[i]) || std::isfinite(numbers_[MARGIN + n_ + i]))
                return false;
        }
        return true;
    }

private:
    static constexpr std::size_t MARGIN = 64;
    std::vector<double> numbers_;
    std::size_t n_;
};

double entry(const Factor& A, std::size_t r, std::size_t c)
{
    return A.transposed ? A.data[c * A.cols + r] : A.data[r * A.cols + c];
}

}  // namespace

TEST(Product, ComputesWithNothingBesideItsFactorsWhateverTheShape)
{
    std::mt19937_64 engine(11);
    std::uniform_real_distribution<double> number(-1.0, 1.0);
    const auto up_to = [&](std::size_t n) { return 1 + engine() % n; };
    const auto draw = [&] { return number(engine); };
    for (int trial = 0; trial < trials(3000); ++trial) {
        const std::size_t limit = trial % 2 == 0 ? 20 : 140;
        const std::size_t m = trial % 11 == 0 ? 1 : up_to(limit), k = up_to(limit);
        const std::size_t n = trial % 7 == 0 ? 1 : up_to(limit);
        const bool At = engine() & 1, Bt = engine() & 1, add = engine() & 1;
        SCOPED_TRACE(testing::Message() << m << " x " << k << " x " << n << ", transposed: " << At
                                        << Bt << ", add: " << add);
        Guarded a(m * k, draw), b(k * n, draw);
        // What is overwritten may hold anything before.
        Guarded c(m * n, [&] { return add ? 1.0 : std::numeric_limits<double>::quiet_NaN(); });
        const RowsView A(a.data(), At ? k : m, At ? m : k), B(b.data(), Bt ? n : k, Bt ? k : n);
        const Factor left = At ? transposed(A) : Factor(A), right = Bt ? transposed(B) : Factor(B);

        std::feclearexcept(FE_ALL_EXCEPT);
        feenableexcept(FE_INVALID | FE_DIVBYZERO | FE_OVERFLOW);
        product(left, right, c.data(), add ? Into::add : Into::overwrite);
        fedisableexcept(FE_ALL_EXCEPT);

        ASSERT_TRUE(c.margins_untouched());
        const std::size_t i = engine() % m, j = engine() % n;
        long double exact = add ? 1.0 : 0.0;
        for (std::size_t l = 0; l < k; ++l) {
            exact += static_cast<long double>(entry(left, i, l)) * entry(right, l, j);
        }
        // k + 1 terms of at most 1, each rounded once when multiplied and at most k times when summed.
        const double bound = static_cast<double>((k + 1) * (k + 1)) * 1.2e-16;
        ASSERT_NEAR(static_cast<double>(exact), c.data()[i * n + j], bound);
    }
}

TEST(ProductSum, AddsEveryPanelAndWhatIsLeftOver)
{
    // Panels of 96 rows and one row more, of 224 and one, one of the whole, none.
    MatrixTemplate<double> room;
    std::mt19937_64 engine(12);
    std::uniform_real_distribution<double> number(-1.0, 1.0);
    const std::size_t shapes[][3] = {
        {97, 32, 256}, {225, 40, 100}, {512, 32, 512}, {5, 3, 1}, {0, 3, 2}};
    for (const auto& [m, k, n] : shapes) {
        SCOPED_TRACE(testing::Message() << m << " x " << k << " x " << n);
        MatrixTemplate<double> A(k, m), B(k, n), C(m, n);
        for (MatrixTemplate<double>* matrix : {&A, &B, &C}) {
            for (double& element : matrix->store()) element = number(engine);
        }
        const MatrixTemplate<double> before = C;
        do_binmult_add(C, transposed(A), B, room);
        for (int trial = 0; trial < 2000 && C.size() > 0; ++trial) {
            const std::size_t i = trial < 3 ? m - 1 : engine() % m, j = engine() % n;
            long double exact = before(i, j);
            for (std::size_t l = 0; l < k; ++l) {
                exact += static_cast<long double>(A(l, i)) * B(l, j);
            }
            ASSERT_NEAR(static_cast<double>(exact), C(i, j), 1e-12) << i << ", " << j;
        }
    }
}

TEST(ProductsOfLayer, AreTheKernelsUpToAWidthOf384)
{
    const std::size_t narrow[][2] = {{1, 1}, {384, 1}, {2, 384}, {384, 384}};
    for (const auto& [in, out] : narrow) EXPECT_EQ(By::kernels, products_of_layer(in, out));
    const std::size_t wide[][2] = {{385, 1}, {1, 385}, {400, 400}};
    for (const auto& [in, out] : wide) EXPECT_EQ(By::blas, products_of_layer(in, out));
}

TEST(WithoutBlas, NoProductMeetsAZeroBesideAnInfinity)
{
    const double inf = std::numeric_limits<double>::infinity();
    const std::vector<double> a = {1, inf, 2, 3, 4, 5}, ones(6, 1.0);
    const RowsView A(a.data(), 3, 2), B(ones.data(), 2, 3);
    std::vector<double> C(9, std::numeric_limits<double>::quiet_NaN());
    EXPECT_FALSE(WithoutBlas::here());
    {
        const WithoutBlas without(true);
        EXPECT_TRUE(WithoutBlas::here());
        std::feclearexcept(FE_ALL_EXCEPT);
        feenableexcept(FE_INVALID | FE_DIVBYZERO | FE_OVERFLOW);
        product(A, B, C.data(), Into::overwrite, By::blas);
        product(A, transposed(RowsView(ones.data(), 3, 2)), C.data(), Into::add, By::blas);
        fedisableexcept(FE_ALL_EXCEPT);
    }
    EXPECT_FALSE(WithoutBlas::here());
    EXPECT_EQ((std::vector<double>{inf, inf, inf, 10, 10, 10, 18, 18, 18}), C);
}
