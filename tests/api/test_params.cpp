#include <gtest/gtest.h>

#include "support/capture.h"
#include "support/fp_state.h"
#include "support/network.h"
#include "support/numbers.h"

namespace {

struct Shape {
    unsigned rows = 77;
    unsigned cols = 77;
    unsigned length = 77;
};

Shape shape(const Network& net, unsigned layer)
{
    Shape s;
    EXPECT_EQ(0, vemk_weights(net, layer, nullptr, &s.rows, &s.cols));
    EXPECT_EQ(0, vemk_bias(net, layer, nullptr, &s.length));
    return s;
}

void expect_shape(const Network& net, unsigned layer, unsigned rows, unsigned cols)
{
    const Shape s = shape(net, layer);
    EXPECT_EQ(rows, s.rows);
    EXPECT_EQ(cols, s.cols);
    EXPECT_EQ(cols, s.length);
}

Numbers counting(std::size_t n)
{
    Numbers w(n);
    for (std::size_t i = 0; i < n; ++i) w[i] = static_cast<double>(i) + 0.5;
    return w;
}

// 2 x 3 and 3 x 2: 17 parameters.
constexpr const char* TEXT = "2 2 2 1 8 2 3 id sum";

}  // namespace

TEST(Numel, CountsWeightsAndBiases)
{
    EXPECT_EQ(3u, vemk_numel(Network("2 1 1 1 8 2 relu sum")));
    EXPECT_EQ(17u, vemk_numel(Network(TEXT)));
    EXPECT_EQ(5u + 15 + 4 + 20 + 2 + 8, vemk_numel(Network("3 2 3 1 16 3 5 4 atan sum")));
    EXPECT_EQ(4u + 16 + 1 + 8, vemk_numel(Network("4 1 2 2 8 4 4 relu sum")));
}

TEST(Numel, IsZeroWithoutLayers)
{
    EXPECT_EQ(0u, vemk_numel(Network("2 1 0 1 8 2 relu sum")));
    EXPECT_EQ(0u, vemk_numel(nullptr));
}

TEST(NuminAndNumout, AreTheFirstTwoNumbersOfTheText)
{
    const Network net("7 2 2 1 8 3 4 relu sum");
    EXPECT_EQ(7u, vemk_numin(net));
    EXPECT_EQ(2u, vemk_numout(net));
    const Network invalid("7 2 2 0 8 3 4 relu sum");
    EXPECT_EQ(7u, vemk_numin(invalid));
    EXPECT_EQ(2u, vemk_numout(invalid));
    EXPECT_EQ(0u, vemk_numin(nullptr));
    EXPECT_EQ(0u, vemk_numout(nullptr));
}

TEST(Maxcols, IsTheSmallerOfNuminAndTheFirstSize)
{
    EXPECT_EQ(3u, vemk_maxcols(Network("7 2 2 1 8 3 4 relu sum")));
    EXPECT_EQ(2u, vemk_maxcols(Network("2 2 2 1 8 3 4 relu sum")));
    EXPECT_EQ(4u, vemk_maxcols(Network("4 1 2 2 8 4 4 relu sum")));
    EXPECT_EQ(2u, vemk_maxcols(Network("2 1 1 1 8 2 relu sum")));
    EXPECT_EQ(0u, vemk_maxcols(Network("2 1 2 1 8 0 4 relu sum")));
}

TEST(Maxcols, IsZeroWithoutLayers)
{
    EXPECT_EQ(0u, vemk_maxcols(Network("7 2 2 0 8 3 4 relu sum")));
    EXPECT_EQ(0u, vemk_maxcols(nullptr));
}

TEST(LogpConstants, AreThoseOfTheLikelihoodToTheBit)
{
    const Network net(TEXT);
    EXPECT_EQ(0x3fc6ff8cb3d51d86u, bits(vemk_logp_bias(net)));
    EXPECT_EQ(0x3fd5555555555555u, bits(vemk_logp_sigma(net)));
    EXPECT_EQ(bits(0.0), bits(vemk_logp_bias(nullptr)));
    EXPECT_EQ(bits(0.0), bits(vemk_logp_sigma(nullptr)));
}

TEST(Weights, TellsTheShapeOfEveryLayer)
{
    const Network net("3 2 3 1 16 3 5 4 atan sum_log_dnorm_fat");
    expect_shape(net, 0, 3, 5);
    expect_shape(net, 1, 5, 4);
    expect_shape(net, 2, 4, 2);
    const Network chained("4 1 2 2 8 4 4 relu sum");
    expect_shape(chained, 0, 4, 4);
    expect_shape(chained, 1, 8, 1);
    expect_shape(Network("2 1 1 1 8 2 relu sum"), 0, 2, 1);
    const Network narrow("2 3 3 1 8 2 0 4 id sum");
    expect_shape(narrow, 0, 2, 0);
    expect_shape(narrow, 1, 0, 4);
}

TEST(Weights, RejectsALayerThatDoesNotExist)
{
    const Network net(TEXT);
    Shape s;
    double buffer[20] = {};
    for (const unsigned layer : {2u, 3u, 4294967295u}) {
        EXPECT_EQ(-1, vemk_weights(net, layer, nullptr, &s.rows, &s.cols));
        EXPECT_EQ(-1, vemk_weights(net, layer, buffer, &s.rows, &s.cols));
        EXPECT_EQ(-1, vemk_bias(net, layer, nullptr, &s.length));
        EXPECT_EQ(-1, vemk_bias(net, layer, buffer, &s.length));
    }
    EXPECT_EQ(77u, s.rows);
    EXPECT_EQ(77u, s.cols);
    EXPECT_EQ(77u, s.length);
    EXPECT_EQ(bits_of(Numbers(20, 0.0)), bits_of(buffer));
    EXPECT_EQ(-1, vemk_weights(Network("none"), 0, nullptr, &s.rows, &s.cols));
    EXPECT_EQ(-1, vemk_bias(Network("none"), 0, nullptr, &s.length));
}

TEST(Weights, RejectsNullHandlesAndCounts)
{
    const Network net(TEXT);
    Shape s;
    double buffer[20] = {};
    EXPECT_EQ(-1, vemk_weights(nullptr, 0, nullptr, &s.rows, &s.cols));
    EXPECT_EQ(-1, vemk_bias(nullptr, 0, nullptr, &s.length));
    for (double* const target : {static_cast<double*>(nullptr), buffer}) {
        EXPECT_EQ(-1, vemk_weights(net, 0, target, nullptr, &s.cols));
        EXPECT_EQ(-1, vemk_weights(net, 0, target, &s.rows, nullptr));
        EXPECT_EQ(-1, vemk_weights(net, 0, target, nullptr, nullptr));
        EXPECT_EQ(-1, vemk_bias(net, 0, target, nullptr));
    }
    EXPECT_EQ(77u, s.rows);
    EXPECT_EQ(77u, s.cols);
    EXPECT_EQ(bits_of(Numbers(20, 0.0)), bits_of(buffer));
}

TEST(Weights, CopiesRowByRow)
{
    const Network net(TEXT);
    ASSERT_EQ(0, vemk_setweights(net, counting(17).data(), 17));
    unsigned rows = 2, cols = 3, length = 3;
    Numbers W(6), b(3);
    EXPECT_EQ(0, vemk_weights(net, 0, W.data(), &rows, &cols));
    EXPECT_EQ(0, vemk_bias(net, 0, b.data(), &length));
    EXPECT_EQ(bits_of(Numbers{0.5, 1.5, 2.5}), bits_of(b));
    EXPECT_EQ(bits_of(Numbers{3.5, 4.5, 5.5, 6.5, 7.5, 8.5}), bits_of(W));
    rows = 3, cols = 2, length = 2;
    EXPECT_EQ(0, vemk_weights(net, 1, W.data(), &rows, &cols));
    EXPECT_EQ(0, vemk_bias(net, 1, b.data(), &length));
    EXPECT_EQ(bits_of(Numbers{9.5, 10.5, 2.5}), bits_of(b));
    EXPECT_EQ(bits_of(Numbers{11.5, 12.5, 13.5, 14.5, 15.5, 16.5}), bits_of(W));
    EXPECT_EQ(3u, rows);
    EXPECT_EQ(2u, cols);
}

TEST(Weights, CopiesTheFirstOnesWhereThereIsRoomForFewer)
{
    const Network net(TEXT);
    ASSERT_EQ(0, vemk_setweights(net, counting(17).data(), 17));
    Numbers W(6, -1.0), b(3, -1.0);
    unsigned rows = 2, cols = 2, length = 1;
    EXPECT_EQ(0, vemk_weights(net, 0, W.data(), &rows, &cols));
    EXPECT_EQ(bits_of(Numbers{3.5, 4.5, 5.5, 6.5, -1, -1}), bits_of(W));
    EXPECT_EQ(0, vemk_bias(net, 0, b.data(), &length));
    EXPECT_EQ(bits_of(Numbers{0.5, -1, -1}), bits_of(b));
    rows = 0, length = 0;
    EXPECT_EQ(0, vemk_weights(net, 0, W.data(), &rows, &cols));
    EXPECT_EQ(0, vemk_bias(net, 0, b.data(), &length));
    EXPECT_EQ(3.5, W[0]);
}

TEST(Weights, WritesNothingWhereThereIsRoomForMore)
{
    const Network net(TEXT);
    ASSERT_EQ(0, vemk_setweights(net, counting(17).data(), 17));
    Numbers buffer(20, -1.0);
    // 65536 * 65536 is 0 in 32 bits, and the largest product needs all 64.
    for (const auto& [r, c] : {std::pair(7u, 1u),
                               std::pair(3u, 3u),
                               std::pair(65536u, 65536u),
                               std::pair(4294967295u, 4294967295u)}) {
        unsigned rows = r, cols = c;
        testing::internal::CaptureStderr();
        EXPECT_EQ(-1, vemk_weights(net, 0, buffer.data(), &rows, &cols)) << r;
        const std::string room = std::to_string(std::uint64_t{r} * c);
        EXPECT_EQ("vemk_weights: refused: there is room for " + room + " values, the layer has 6\n",
                  testing::internal::GetCapturedStderr());
        EXPECT_EQ(r, rows);
        EXPECT_EQ(c, cols);
    }
    for (const unsigned n : {4u, 4294967295u}) {
        unsigned length = n;
        testing::internal::CaptureStderr();
        EXPECT_EQ(-1, vemk_bias(net, 0, buffer.data(), &length));
        EXPECT_EQ("vemk_bias: refused: there is room for " + std::to_string(n) +
                      " values, the layer has 3\n",
                  testing::internal::GetCapturedStderr());
        EXPECT_EQ(n, length);
    }
    EXPECT_EQ(bits_of(Numbers(20, -1.0)), bits_of(buffer));
}

TEST(GetWeights, YieldsZerosAfterCreation)
{
    const Network net(TEXT);
    Numbers w(17, -1.0);
    EXPECT_EQ(0, vemk_getweights(net, w.data(), 17));
    EXPECT_EQ(bits_of(Numbers(17, 0.0)), bits_of(w));
}

TEST(GetWeights, GivesBackWhatSetWeightsTook)
{
    const Network net(TEXT);
    Numbers w = counting(17), back(17);
    w[3] = -0.0;
    w[5] = INF;
    w[7] = QUIET_NAN;
    EXPECT_EQ(0, vemk_setweights(net, w.data(), 17));
    EXPECT_EQ(0, vemk_getweights(net, back.data(), 17));
    EXPECT_EQ(bits_of(w), bits_of(back));
}

TEST(GetWeights, CopiesTheFirstOnes)
{
    const Network net(TEXT);
    ASSERT_EQ(0, vemk_setweights(net, counting(17).data(), 17));
    for (unsigned n = 0; n <= 17; ++n) {
        Numbers w(18, -1.0), expected(18, -1.0);
        for (unsigned i = 0; i < n; ++i) expected[i] = i + 0.5;
        EXPECT_EQ(0, vemk_getweights(net, w.data(), n));
        EXPECT_EQ(bits_of(expected), bits_of(w)) << n;
    }
    EXPECT_EQ(0, vemk_getweights(net, nullptr, 0));
}

TEST(GetWeights, RefusesMoreThanThereAre)
{
    const Network net(TEXT);
    Numbers w(20, -1.0);
    for (const unsigned n : {18u, 4294967295u}) {
        int status = 0;
        const Heard heard = listen([&] { status = vemk_getweights(net, w.data(), n); });
        EXPECT_EQ(-1, status);
        EXPECT_EQ("vemk_getweights: refused: n is " + std::to_string(n) +
                      ", the network has 17 parameters\n",
                  heard.err);
        EXPECT_EQ("", heard.out);
    }
    EXPECT_EQ(bits_of(Numbers(20, -1.0)), bits_of(w));
}

TEST(GetWeights, RejectsNullHandlesAndTargets)
{
    const Network net(TEXT);
    double w[17] = {};
    EXPECT_EQ(-1, vemk_getweights(nullptr, w, 17));
    EXPECT_EQ(-1, vemk_getweights(nullptr, w, 0));
    EXPECT_EQ(-1, vemk_getweights(net, nullptr, 17));
    EXPECT_EQ(-1, vemk_getweights(net, nullptr, 1));
}

TEST(GetWeights, OfANetworkWithoutLayersGivesNothing)
{
    const Network net("none");
    double w = -1;
    EXPECT_EQ(0, vemk_getweights(net, &w, 0));
    EXPECT_EQ(-1, vemk_getweights(net, &w, 1));
    EXPECT_EQ(-1.0, w);
}

TEST(SetWeights, TakesBiasesBeforeWeightsRowByRow)
{
    const Network net("2 1 1 1 8 2 relu sum");
    const double w[] = {10, 20, 30};
    ASSERT_EQ(0, vemk_setweights(net, w, 3));
    double b = 0, W[2] = {};
    unsigned length = 1, rows = 2, cols = 1;
    EXPECT_EQ(0, vemk_bias(net, 0, &b, &length));
    EXPECT_EQ(0, vemk_weights(net, 0, W, &rows, &cols));
    EXPECT_EQ(10.0, b);
    EXPECT_EQ(20.0, W[0]);
    EXPECT_EQ(30.0, W[1]);
}

TEST(SetWeights, SetsZerosForANullVector)
{
    const Network net(TEXT);
    ASSERT_EQ(0, vemk_setweights(net, counting(17).data(), 17));
    EXPECT_EQ(0, vemk_setweights(net, nullptr, 17));
    Numbers w(17, -1.0);
    EXPECT_EQ(0, vemk_getweights(net, w.data(), 17));
    EXPECT_EQ(bits_of(Numbers(17, 0.0)), bits_of(w));
}

TEST(SetWeights, RefusesAWrongLengthAndChangesNothing)
{
    const Network net(TEXT);
    const Numbers w = counting(17), other(20, -1.0);
    ASSERT_EQ(0, vemk_setweights(net, w.data(), 17));
    for (const unsigned n : {0u, 16u, 18u, 4294967295u}) {
        for (const double* const from : {other.data(), static_cast<const double*>(nullptr)}) {
            int status = 0;
            const Heard heard = listen([&] { status = vemk_setweights(net, from, n); });
            EXPECT_EQ(-1, status);
            EXPECT_EQ("vemk_setweights: refused: n is " + std::to_string(n) +
                          ", the network has 17 parameters\n",
                      heard.err);
            EXPECT_EQ("", heard.out);
        }
    }
    Numbers back(17);
    EXPECT_EQ(0, vemk_getweights(net, back.data(), 17));
    EXPECT_EQ(bits_of(w), bits_of(back));
}

TEST(SetWeights, RejectsANullHandle)
{
    EXPECT_EQ(-1, vemk_setweights(nullptr, counting(17).data(), 17));
    EXPECT_EQ(-1, vemk_setweights(nullptr, nullptr, 0));
}

TEST(SetWeights, OfANetworkWithoutLayersTakesNothing)
{
    const Network net("none");
    EXPECT_EQ(0, vemk_setweights(net, nullptr, 0));
    EXPECT_EQ(-1, vemk_setweights(net, counting(1).data(), 1));
}

TEST(Parameters, AreHandledOutsideTheCallFrame)
{
    // Stale flags would raise at once under armed traps, and the host's traps stay as they are.
    const Network net(TEXT);
    Numbers w = counting(17);
    const int armed = armed_by_the_host(FE_DIVBYZERO);
    EXPECT_EQ(0, vemk_setweights(net, w.data(), 17));
    EXPECT_EQ(0, vemk_getweights(net, w.data(), 17));
    const Shape s = shape(net, 0);
    const int traps = fegetexcept();
    fedisableexcept(FE_ALL_EXCEPT);
    EXPECT_EQ(armed, traps);
    EXPECT_EQ(2u, s.rows);
}
