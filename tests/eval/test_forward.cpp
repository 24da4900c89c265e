#include <gtest/gtest.h>

#include "eval/forward.h"
#include "support/capture.h"
#include "support/double_model.h"
#include "support/fp_state.h"

using namespace VEMKN;
using Matrix = MatrixTemplate<double>;

namespace {

// A few dozen roundings of numbers below 10.
constexpr double ROUNDING = 1e-13;

}  // namespace

TEST(Computev, IsTheAffineChainUnderId)
{
    const plain::Network network{.numin = 2, .numout = 2, .sizes = {2, 3}, .activation = "id"};
    //                b0          W0                 b1      W1
    const Numbers w = {1, 2, 3, 1, 0, 2, 0, 1, -1, 5, -5, 1, 2, 3, 4, 5, 6};
    const DoubleModel net = model_of(network, w);
    const Numbers x = {1, 2, -1, 0.5};
    const Matrix Y = computev(net, matrix_of(x, 2, 2));
    ASSERT_EQ(2u, Y.rows());
    ASSERT_EQ(2u, Y.cols());
    // Row 0: H = (1+1, 2+2, 3+2-2) = (2, 4, 3); Y = (5+2+12+15, -5+4+16+18).
    // Row 1: H = (0, 2.5, 0.5);                 Y = (5+7.5+2.5, -5+10+3).
    EXPECT_EQ(bits_of(Numbers{34, 33, 15, 8}), bits_of(Y.store()));
}

TEST(Computev, AppliesTheActivationToTheOutputsToo)
{
    const plain::Network network{.numin = 1, .numout = 1, .sizes = {1, 1}, .activation = "relu"};
    const DoubleModel net = model_of(network, {0, 1, 0, -1});
    EXPECT_EQ(0.0, computev(net, matrix_of({3}, 1, 1))(0, 0));
    const DoubleModel up = model_of(network, {0, 1, 0, 1});
    EXPECT_EQ(3.0, computev(up, matrix_of({3}, 1, 1))(0, 0));
}

TEST(Computev, GivesARowAloneWhatItGivesTheRowInABatch)
{
    const plain::Network network{
        .numin = 3, .numout = 2, .sizes = {3, 5, 4}, .activation = "softplus"};
    Random random(20);
    const DoubleModel net = model_of(network, random.list(network.numel()));
    const Matrix X = matrix_of(random.list(7 * 3), 7, 3);
    const Matrix all = computev(net, X);
    for (std::size_t r = 0; r < 7; ++r) {
        const Matrix one = computev(net, RowsView(X).slice(r, 1));
        ASSERT_EQ(1u, one.rows());
        for (std::size_t c = 0; c < 2; ++c) EXPECT_EQ(all(r, c), one(0, c));
    }
}

TEST(Computev, TakesMissingColumnsAsZeros)
{
    const plain::Network network{.numin = 4, .numout = 2, .sizes = {4, 3}, .activation = "atan"};
    Random random(21);
    const DoubleModel net = model_of(network, random.list(network.numel()));
    for (std::size_t ncols = 0; ncols <= 4; ++ncols) {
        const Numbers x = random.list(5 * ncols);
        Numbers padded(5 * 4);
        for (std::size_t r = 0; r < 5; ++r) {
            for (std::size_t c = 0; c < ncols; ++c) padded[r * 4 + c] = x[r * ncols + c];
        }
        EXPECT_EQ(bits_of(computev(net, matrix_of(padded, 5, 4)).store()),
                  bits_of(computev(net, matrix_of(x, 5, ncols)).store()))
            << ncols;
    }
}

TEST(Computev, PadsToTheHeightOfTheFirstMatrixNotToTheInputWidth)
{
    const plain::Network network{.numin = 2, .numout = 1, .sizes = {6, 3}, .activation = "atan"};
    Random random(22);
    const Numbers w = random.list(network.numel()), x = random.list(4 * 2);
    const Matrix Y = computev(model_of(network, w), matrix_of(x, 4, 2));
    expect_close(Y.store(), network.outputs(w, x, 4, 2), ROUNDING);
}

TEST(Computev, PadsAfreshForEveryBatch)
{
    // A cache is reused from slice to slice: what an earlier, wider batch left must not show.
    const plain::Network network{.numin = 3, .numout = 1, .sizes = {3, 2}, .activation = "id"};
    const DoubleModel net = model_of(network, {0, 0, 1, 1, 1, 1, 1, 1, 0, 1, 1});
    ForwardCache<Matrix> cache(ForwardCache<Matrix>::Memory::rolling);
    const Matrix wide = matrix_of({1, 2, 1, 2}, 2, 2), narrow = matrix_of({4, 4}, 2, 1);
    forward(net, wide, cache);
    EXPECT_EQ(6.0, cache.O(0, 0));
    forward(net, narrow, cache);
    EXPECT_EQ(8.0, cache.O(0, 0));
    forward(net, matrix_of({5}, 1, 1), cache);
    EXPECT_EQ(1u, cache.O.rows());
    EXPECT_EQ(10.0, cache.O(0, 0));
}

TEST(Computev, PutsTheOutputsOfTheChainedPassesSideBySide)
{
    const plain::Network twice{
        .numin = 3, .numout = 2, .nmult = 2, .sizes = {3, 4, 3}, .activation = "softplus"};
    Random random(23);
    const Numbers w = random.list(twice.numel()), x = random.list(5 * 3);
    const Matrix Y = computev(model_of(twice, w), matrix_of(x, 5, 3));
    expect_close(Y.store(), twice.outputs(w, x, 5, 3), ROUNDING);

    // The second pass starts from the output of the first: with H' = 2H under id, C = (2x, 4x).
    const plain::Network doubling{
        .numin = 1, .numout = 1, .nmult = 2, .sizes = {1, 1}, .activation = "id"};
    const DoubleModel net = model_of(doubling, {0, 2, 0, 1, 100});
    EXPECT_EQ(2.0 * 3 + 100 * 4.0 * 3, computev(net, matrix_of({3}, 1, 1))(0, 0));
}

TEST(Computev, IsThatOfOnePassWhereTheLastLayerIgnoresTheSecond)
{
    plain::Network twice{
        .numin = 3, .numout = 2, .nmult = 2, .sizes = {3, 4, 3}, .activation = "softplus"};
    plain::Network once = twice;
    once.nmult = 1;
    Random random(24);
    Numbers w = random.list(twice.numel());
    const Numbers x = random.list(5 * 3);
    const std::size_t second_half = w.size() - 3 * 2;
    for (std::size_t i = second_half; i < w.size(); ++i) w[i] = 0;
    const Matrix both = computev(model_of(twice, w), matrix_of(x, 5, 3));
    const Numbers shorter(w.begin(), w.begin() + static_cast<std::ptrdiff_t>(second_half));
    const Matrix first = computev(model_of(once, shorter), matrix_of(x, 5, 3));
    expect_close(both.store(), first.store(), ROUNDING);
}

TEST(Computev, EvaluatesWidthsOfZero)
{
    Random random(25);
    for (const std::vector<unsigned>& sizes :
         {std::vector<unsigned>{2, 0}, {2, 0, 3}, {2, 3, 0}, {0, 3}, {0, 0}}) {
        const plain::Network network{
            .numin = 2, .numout = 2, .sizes = sizes, .activation = "softplus"};
        const Numbers w = random.list(network.numel());
        const std::size_t ncols = sizes[0];
        const Numbers x = random.list(3 * ncols);
        for (const std::size_t nrows : {0u, 1u, 3u}) {
            const Matrix Y = computev(model_of(network, w), matrix_of(x, nrows, ncols));
            ASSERT_EQ(nrows, Y.rows());
            ASSERT_EQ(2u, Y.cols());
            expect_close(Y.store(), network.outputs(w, x, nrows, ncols), ROUNDING);
        }
    }
}

TEST(Computev, OfNoRowsHasNoRows)
{
    const Matrix Y = computev(model_of("3 2 2 2 8 3 3 relu sum"), matrix_of({}, 0, 3));
    EXPECT_EQ(0u, Y.rows());
    EXPECT_EQ(2u, Y.cols());
}

TEST(Computev, SaysInvalidDimsOnceALayerAndGoesOnWithoutTheBias)
{
    const plain::Network network{.numin = 2, .numout = 2, .sizes = {2, 3}, .activation = "id"};
    DoubleModel net = model_of(network, {9, 9, 9, 1, 0, 0, 0, 1, 0, 9, 9, 1, 0, 0, 1, 0, 0});
    net.biases[0].resize(2, 50.0);
    net.biases[1].resize(5, 50.0);
    const Matrix X = matrix_of({1, 2, 3, 4, 5, 6}, 3, 2);
    Capture err = Capture::error();
    const Matrix Y = computev(net, X);
    EXPECT_EQ("invalid dims\ninvalid dims\n", err.text());
    EXPECT_EQ(bits_of(X.store()), bits_of(Y.store()));
}

TEST(Computev, AddsABiasAsLongAsTheStoreElementByElement)
{
    const plain::Network network{.numin = 1, .numout = 1, .sizes = {1, 1}, .activation = "id"};
    DoubleModel net = model_of(network, {0, 1, 0, 1});
    net.biases[0].resize(3);
    net.biases[0] = {10, 20, 30};
    const Matrix Y = computev(net, matrix_of({1, 2, 3}, 3, 1));
    EXPECT_EQ(bits_of(Numbers{11, 22, 33}), bits_of(Y.store()));
}

TEST(Computev, PassesAQuietNanWithTrapsArmed)
{
    for (const char* activation : {"id", "relu", "atan", "softplus", "softplus_shifted"}) {
        const plain::Network network{
            .numin = 2, .numout = 1, .sizes = {2, 3}, .activation = activation};
        const DoubleModel net = model_of(network, Numbers(network.numel(), 0.5));
        Matrix Y;
        {
            const TrapsArmed traps;
            Y = computev(net, matrix_of({1, 2, QUIET_NAN, 1, 2, 1}, 3, 2));
        }
        EXPECT_FALSE(std::isnan(Y(0, 0))) << activation;
        EXPECT_TRUE(std::isnan(Y(1, 0))) << activation;
        EXPECT_FALSE(std::isnan(Y(2, 0))) << activation;
    }
}

TEST(Computev, LeavesItsModelAndInputAlone)
{
    const plain::Network network{
        .numin = 2, .numout = 1, .nmult = 2, .sizes = {2, 2}, .activation = "atan"};
    Random random(26);
    const Numbers w = random.list(network.numel());
    const DoubleModel net = model_of(network, w);
    const Matrix X = matrix_of(random.list(6), 3, 2);
    const Matrix before = X;
    const Matrix first = computev(net, X), second = computev(net, X);
    EXPECT_EQ(bits_of(w), bits_of(flat(net)));
    EXPECT_EQ(bits_of(before.store()), bits_of(X.store()));
    EXPECT_EQ(bits_of(first.store()), bits_of(second.store()));
}
