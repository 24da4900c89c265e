#include <gtest/gtest.h>
#include <unistd.h>

#include "network/mknn.h"
#include "support/capture.h"
#include "support/numbers.h"

using namespace VEMKN;
using Matrix = MatrixTemplate<double>;

namespace {

DoubleModel parse(const std::string& text)
{
    return mknn<DoubleModel>(VEMKN::DescriptionText(text));
}

// What the parser says about a text on one stream; the banner may come first, once a process.
std::string without_banner(const std::string& text)
{
    const std::string banner = "VEMKN " VEMKN_VERSION " (C) 2026 the VEMKN developers\n";
    return text.rfind(banner, 0) == 0 ? text.substr(banner.size()) : text;
}

struct Said {
    DoubleModel net;
    std::string out;
    std::string err;
};

Said parse_and_listen(const std::string& text)
{
    Capture out = Capture::output(), err = Capture::error();
    DoubleModel net = parse(text);
    std::string said_out = without_banner(out.text());
    return {std::move(net), std::move(said_out), err.text()};
}

void expect_shape(const DoubleModel& net, std::size_t layer, std::size_t rows, std::size_t cols)
{
    ASSERT_LT(layer, net.weights.size());
    EXPECT_EQ(rows, net.weights[layer].rows());
    EXPECT_EQ(cols, net.weights[layer].cols());
    EXPECT_EQ(rows * cols, net.weights[layer].size());
    EXPECT_EQ(cols, net.biases[layer].size());
}

void expect_no_layers(const DoubleModel& net)
{
    EXPECT_EQ(0u, net.sizes.size());
    EXPECT_TRUE(net.weights.empty());
    EXPECT_TRUE(net.biases.empty());
    EXPECT_FALSE(net.summing_norm.is_set());
    EXPECT_FALSE(net.element_norm.is_set());
    EXPECT_FALSE(net.activation.is_set());
}

double summed(const DoubleModel& net, const Matrix& R)
{
    double s = -1.0;
    net.summing_norm.forward(R, s);
    return s;
}

std::valarray<double> normed(const DoubleModel& net, const Matrix& R)
{
    std::valarray<double> v(R.size());
    net.element_norm.forward(R, v);
    return v;
}

// Which of the activations a model has, by its values at 0.5 and -0.5, which differ for all of them.
Numbers activated(const DoubleModel& net)
{
    const double x[] = {0.5, -0.5};
    Matrix y, kept;
    net.activation.forward(Matrix(x, 1, 2), y, kept);
    return {y(0, 0), y(0, 1)};
}

Numbers adjoint_of_ones(const DoubleModel& net)
{
    const double x[] = {0.5, -0.5}, ones[] = {1, 1};
    Matrix y, kept, xbar;
    net.activation.forward(Matrix(x, 1, 2), y, kept);
    net.activation.adjoint(Matrix(x, 1, 2), kept, Matrix(ones, 1, 2), xbar);
    return {xbar(0, 0), xbar(0, 1)};
}

}  // namespace

TEST(Mknn, ReadsTheFieldsInOrder)
{
    const DoubleModel net = parse("3 2 3 1 16 3 5 4 atan sum_log_dnorm_fat");
    EXPECT_EQ(3u, net.numin);
    EXPECT_EQ(2u, net.numout);
    EXPECT_EQ(3u, net.nlayers);
    EXPECT_EQ(1u, net.nmult);
    EXPECT_EQ(16, net.batch);
    EXPECT_EQ(1u, net.threads);
    ASSERT_EQ(3u, net.sizes.size());
    EXPECT_EQ(3u, net.sizes[0]);
    EXPECT_EQ(5u, net.sizes[1]);
    EXPECT_EQ(4u, net.sizes[2]);
    EXPECT_EQ("atan", net.activation_name);
    EXPECT_EQ("sum_log_dnorm_fat", net.norm_name);
}

TEST(Mknn, GivesEveryLayerItsShape)
{
    const DoubleModel net = parse("3 2 3 1 16 3 5 4 atan sum_log_dnorm_fat");
    ASSERT_EQ(3u, net.weights.size());
    ASSERT_EQ(3u, net.biases.size());
    expect_shape(net, 0, 3, 5);
    expect_shape(net, 1, 5, 4);
    expect_shape(net, 2, 4, 2);
}

TEST(Mknn, BuildsOneLayer)
{
    const DoubleModel net = parse("2 1 1 1 8 2 relu sum");
    ASSERT_EQ(1u, net.weights.size());
    expect_shape(net, 0, 2, 1);
}

TEST(Mknn, StacksThePassesInFrontOfTheLastLayer)
{
    const DoubleModel net = parse("4 1 2 2 8 4 4 relu sum");
    expect_shape(net, 0, 4, 4);
    expect_shape(net, 1, 8, 1);
}

TEST(Mknn, MultipliesTheRowsOfAnOnlyLayerToo)
{
    expect_shape(parse("4 1 1 3 8 4 relu sum"), 0, 12, 1);
}

TEST(Mknn, DoesNotCompareTheInputWidthWithTheFirstSize)
{
    const DoubleModel net = parse("9 1 2 1 8 4 3 relu sum");
    EXPECT_EQ(9u, net.numin);
    expect_shape(net, 0, 4, 3);
}

TEST(Mknn, AcceptsSizesOfZero)
{
    const DoubleModel net = parse("2 3 3 1 8 2 0 4 id sum");
    expect_shape(net, 0, 2, 0);
    expect_shape(net, 1, 0, 4);
    expect_shape(net, 2, 4, 3);
}

TEST(Mknn, StartsWithZeroWeights)
{
    const DoubleModel net = parse("3 2 3 1 16 3 5 4 atan sum");
    for (std::size_t i = 0; i < 3; ++i) {
        for (const double w : net.weights[i].store()) EXPECT_EQ(bits(0.0), bits(w));
        for (const double b : net.biases[i]) EXPECT_EQ(bits(0.0), bits(b));
    }
}

TEST(Mknn, StoresTheConstantsOfTheLikelihoodToTheBit)
{
    for (const char* text :
         {"2 1 2 1 8 2 3 id sum", "2 1 2 1 8 2 3 id sum_log_dnorm_fat", "2 1 2 1 8 2 3 id none"}) {
        const DoubleModel net = parse_and_listen(text).net;
        EXPECT_EQ(0x3fc6ff8cb3d51d86u, bits(net.logp_bias)) << text;
        EXPECT_EQ(0x3fd5555555555555u, bits(net.logp_sigma)) << text;
    }
}

TEST(Mknn, TakesAnyWhiteSpace)
{
    const Said said = parse_and_listen("\t2\n1\r\n2  1\v8\f2 3\r\n  relu\tsum\r\n");
    EXPECT_EQ("", said.out);
    EXPECT_EQ("", said.err);
    EXPECT_EQ("relu", said.net.activation_name);
    EXPECT_EQ("sum", said.net.norm_name);
    ASSERT_EQ(2u, said.net.weights.size());
}

TEST(Mknn, IgnoresWhatFollowsTheNormName)
{
    const Said said = parse_and_listen("2 1 2 1 8 2 3 relu sum and 5 more words");
    EXPECT_EQ("", said.out);
    EXPECT_EQ("", said.err);
    EXPECT_EQ("sum", said.net.norm_name);
}

TEST(Mknn, SetsTheActivationByName)
{
    const double up = std::log(1 + std::exp(0.5)), down = std::log(1 + std::exp(-0.5));
    const double slope_up = std::exp(0.5) / (1 + std::exp(0.5));
    const double slope_down = std::exp(-0.5) / (1 + std::exp(-0.5));
    const double atan_slope = 1 / 1.25;

    struct {
        const char* name;
        Numbers values;
        Numbers slopes;
    } const rows[] = {
        {"softplus", {up, down}, {slope_up, slope_down}},
        {"softmax", {up, down}, {slope_up, slope_down}},
        {"softplus_shifted", {up, down}, {slope_up, slope_down}},
        {"atan", {std::atan(0.5), -std::atan(0.5)}, {atan_slope, atan_slope}},
        {"relu", {0.5, 0}, {1, 0}},
        {"id", {0.5, -0.5}, {1, 1}},
        {"foo", {up, down}, {slope_up, slope_down}},
        {"Relu", {up, down}, {slope_up, slope_down}},
        {"relu1", {up, down}, {slope_up, slope_down}},
        {"rel", {up, down}, {slope_up, slope_down}},
    };

    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const Said said = parse_and_listen(std::string("2 1 2 1 8 2 3 ") + row.name + " sum");
        EXPECT_EQ("", said.out);
        EXPECT_EQ("", said.err);
        EXPECT_EQ(row.name, said.net.activation_name);
        // A few roundings; the functions differ by far more.
        expect_close(activated(said.net), row.values, 8 * EPS);
        expect_close(adjoint_of_ones(said.net), row.slopes, 8 * EPS);
    }
}

TEST(Mknn, SetsTheNormsByName)
{
    const double r[] = {1.0, -1.0};
    const Matrix R(r, 2, 1);

    const DoubleModel sum = parse("2 1 2 1 8 2 3 id sum");
    EXPECT_EQ(0.0, summed(sum, R));
    EXPECT_EQ(bits_of(r), bits_of(normed(sum, R)));

    const DoubleModel likelihood = parse("2 1 2 1 8 2 3 id sum_log_dnorm_fat");
    // 2 * 4.5, and 9 * (+-1) for the adjoints: a few roundings.
    EXPECT_NEAR(9.0, summed(likelihood, R), 64 * EPS);
    expect_close(normed(likelihood, R), Numbers{4.5, 4.5}, 32 * EPS);
    Matrix Rbar(2, 1);
    likelihood.summing_norm.adjoint(R, 1.0, Rbar);
    expect_close(Rbar.store(), Numbers{9, -9}, 64 * EPS);
    likelihood.element_norm.adjoint(R, {1.0, 2.0}, Rbar);
    expect_close(Rbar.store(), Numbers{9, -18}, 64 * EPS);

    sum.summing_norm.adjoint(R, 0.5, Rbar);
    EXPECT_EQ(bits_of(Numbers{0.5, 0.5}), bits_of(Rbar.store()));
    sum.element_norm.adjoint(R, {1.0, 2.0}, Rbar);
    EXPECT_EQ(bits_of(Numbers{1, 2}), bits_of(Rbar.store()));
}

TEST(Mknn, SaysSoOnStandardOutputWhenTheNormIsUnknownAndGoesOn)
{
    for (const char* name : {"l2", "Sum", "sums", "su", "sum_log_dnorm", "SUM_LOG_DNORM_FAT"}) {
        SCOPED_TRACE(name);
        const Said said = parse_and_listen(std::string("2 1 2 1 8 2 3 relu ") + name);
        EXPECT_EQ(std::string("invalid norm function name: ") + name + "\n", said.out);
        EXPECT_EQ("", said.err);
        EXPECT_FALSE(said.net.summing_norm.is_set());
        EXPECT_FALSE(said.net.element_norm.is_set());
        EXPECT_EQ(name, said.net.norm_name);
        // The activation is chosen after the norm, and still is.
        EXPECT_TRUE(said.net.activation.is_set());
        EXPECT_EQ(bits_of(Numbers{0.5, 0.0}), bits_of(activated(said.net)));
        expect_shape(said.net, 1, 3, 1);
    }
}

TEST(Mknn, RefusesAZeroInAnyOfTheFirstFiveNumbers)
{
    for (std::size_t zero = 0; zero < 5; ++zero) {
        std::string text;
        const char* const numbers[] = {"3", "2", "2", "1", "8"};
        for (std::size_t i = 0; i < 5; ++i) text += std::string(i == zero ? "0" : numbers[i]) + " ";
        text += "3 4 relu sum";
        SCOPED_TRACE(text);
        const Said said = parse_and_listen(text);
        EXPECT_EQ("Error: invalid network data\n", said.err);
        EXPECT_EQ("", said.out);
        expect_no_layers(said.net);
        EXPECT_EQ(zero == 0 ? 0u : 3u, said.net.numin);
        EXPECT_EQ(zero == 1 ? 0u : 2u, said.net.numout);
        EXPECT_EQ(zero == 2 ? 0u : 2u, said.net.nlayers);
        EXPECT_EQ(zero == 3 ? 0u : 1u, said.net.nmult);
        EXPECT_EQ(zero == 4 ? 0 : 8, said.net.batch);
        EXPECT_EQ("", said.net.activation_name);
        EXPECT_EQ("", said.net.norm_name);
    }
}

// A layer without parameters takes memory too: 312 bytes in the two models of a handle.
TEST(Mknn, RefusesMoreEmptyLayersThanHalfTheMemoryHolds)
{
    const std::uint64_t half = static_cast<std::uint64_t>(sysconf(_SC_PHYS_PAGES)) *
                               static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE)) / 2;
    const std::uint64_t layers = std::min<std::uint64_t>(half / 300, UINT32_MAX);
    if (layers * 312 <= half) return;  // more memory than 32-bit counts can ask for
    expect_no_layers(parse("1 1 " + std::to_string(layers) + " 1 32 1 1"));
}

TEST(Mknn, LeavesUnreadFieldsAtTheirInitialValues)
{
    // The sizes and names are missing: zeros, and no names.
    const Said said = parse_and_listen("3 2 3 1 8 5");
    EXPECT_EQ("invalid norm function name: \n", said.out);
    EXPECT_EQ("", said.err);
    ASSERT_EQ(3u, said.net.weights.size());
    expect_shape(said.net, 0, 5, 0);
    expect_shape(said.net, 1, 0, 0);
    expect_shape(said.net, 2, 0, 2);

    const Said none = parse_and_listen("3 2");
    EXPECT_EQ("Error: invalid network data\n", none.err);
    EXPECT_EQ(3u, none.net.numin);
    EXPECT_EQ(2u, none.net.numout);
    EXPECT_EQ(0u, none.net.nlayers);
    EXPECT_EQ(0, none.net.batch);
    EXPECT_EQ(1u, none.net.threads);
}

TEST(Mknn, ReadsNothingAfterAWordInPlaceOfASize)
{
    const Said said = parse_and_listen("3 2 2 1 8 relu 5 sum");
    ASSERT_EQ(2u, said.net.weights.size());
    expect_shape(said.net, 0, 0, 0);
    EXPECT_EQ("", said.net.activation_name);
    EXPECT_EQ("", said.net.norm_name);
    EXPECT_EQ("invalid norm function name: \n", said.out);
}

TEST(Mknn, ReadsANegativeNumberAsItsWrappedValue)
{
    EXPECT_EQ(4294967295u, parse("-1 1 2 1 8 2 2 id sum").numin);
    EXPECT_EQ(2u, parse("2 1 2 1 8 -4294967294 2 id sum").sizes[0]);
}

TEST(Mknn, ACopyOfAModelIsIndependent)
{
    DoubleModel a = parse("2 1 2 1 8 2 3 id sum");
    DoubleModel b = a;
    b.weights[0](0, 0) = 7;
    b.biases[1][0] = 8;
    EXPECT_EQ(0.0, a.weights[0](0, 0));
    EXPECT_EQ(0.0, a.biases[1][0]);
    a = b;
    EXPECT_EQ(7.0, a.weights[0](0, 0));
    EXPECT_EQ(8.0, a.biases[1][0]);
}
