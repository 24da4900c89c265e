#include "jacobian/derivative_calls.h"
#include "support/capture.h"

namespace {

// 3-4-2, numel = 4 + 12 + 2 + 8.
Problem problem(const char* activation = "softplus", const char* norm = "sum_log_dnorm_fat")
{
    return small_problem(3, 4, activation, norm);
}

// Differences of exact gradients of the size of ten are good to some 1e-14, see differences.h; the products themselves
// to some hundred roundings.
constexpr double TOLERANCE = 1e-12;

// hv against the differences, tangent by tangent, in the order of the moment.
void expect_products(const Problem& p, const Numbers& v, unsigned nv, const Numbers& hv)
{
    for (unsigned d = 0; d < nv; ++d) {
        expect_close(tangent(hv, d, p.nw(), nv),
                     plain_hessian_product(p, tangent(v, d, p.nw(), nv)),
                     TOLERANCE,
                     "tangent " + std::to_string(d) + ", element");
    }
}

// All arguments of one call, so that a test can change one of them.
struct HvCall {
    explicit HvCall(const Problem& p, const Numbers& tangents, unsigned n)
        : w(p.w.data()),
          nw(p.nw()),
          v(tangents.data()),
          nv(n),
          x(p.x.data()),
          y(p.y.data()),
          nrows(p.nrows),
          xcols(p.xcols),
          ycols(p.ycols()),
          gradient(nw),
          hv(std::size_t{nw} * nv)
    {
    }

    int run(VEMKNInfo* net)
    {
        return vemk_Hv(
            net, w, nw, v, nv, x, y, nrows, xcols, ycols, &value, gradient.data(), hv.data());
    }

    const double* w;
    unsigned nw;
    const double* v;
    unsigned nv;
    const double* x;
    const double* y;
    unsigned nrows, xcols, ycols;
    double value = UNTOUCHED;
    Output gradient, hv;
};

}  // namespace

TEST(Hv, TakesAndGivesInterleavedTangentsInColumnOrder)
{
    for (const char* norm : NORMS) {
        const Problem p = problem("softplus", norm);
        const Network net(p.shape.text());
        for (const unsigned nv : {1u, 3u, p.nw() + 4}) {
            SCOPED_TRACE(testing::Message() << nv << " tangents");
            Random random(nv);
            const Numbers v = random.list(std::size_t{p.nw()} * nv);
            const HessianProducts products = call_Hv(net, p, v, nv);
            expect_products(p, v, nv, products.hv);
        }
    }
}

TEST(Hv, TakesAndGivesTangentsOneAfterTheOtherInRowOrder)
{
    const Problem p = problem();
    const Network net(p.shape.text());
    // Any number but zero means row order.
    for (const int order : {1, -1, 1 << 30}) {
        const RowOrder row_order(order);
        Random random(2);
        const Numbers v = random.list(std::size_t{p.nw()} * p.nw());
        expect_products(p, v, p.nw(), call_Hv(net, p, v, p.nw()).hv);
    }
}

TEST(Hv, GivesTheSameProductsInBothOrders)
{
    const Problem p = problem();
    const Network net(p.shape.text());
    Random random(3);
    const Numbers v = random.list(std::size_t{p.nw()} * p.nw());
    const HessianProducts columns = call_Hv(net, p, v, p.nw());
    const RowOrder row_order;
    const HessianProducts rows = call_Hv(net, p, in_row_order(v, p.nw(), p.nw()), p.nw());
    // The same tangents in the same number: the same arithmetic.
    EXPECT_EQ(bits_of(in_row_order(columns.hv, p.nw(), p.nw())), bits_of(rows.hv));
    EXPECT_EQ(bits_of(columns.gradient), bits_of(rows.gradient));
    EXPECT_EQ(bits(columns.value), bits(rows.value));
}

TEST(Hv, WritesOnlyTheTangentsThatItWasGivenInRowOrder)
{
    const Problem p = problem();
    const Network net(p.shape.text());
    const RowOrder row_order;
    for (const unsigned nv : {1u, 2u, p.nw() - 1}) {
        SCOPED_TRACE(testing::Message() << nv << " tangents");
        Random random(4);
        // No longer than nw*nv: what stands behind it is not read.
        const Numbers v = random.list(std::size_t{p.nw()} * nv);
        expect_products(p, v, nv, call_Hv(net, p, v, nv).hv);
    }
}

TEST(Hv, WithoutTangentsWritesValueAndGradientOnly)
{
    const Problem p = problem();
    const Network net(p.shape.text());
    const Gradient g = call_g(net, p);
    for (const int order : {0, 1}) {
        const RowOrder row_order(order);
        HvCall call(p, {}, 0);
        ASSERT_EQ(0, call.run(net));
        EXPECT_TRUE(call.hv.untouched());
        EXPECT_DOUBLE_EQ(g.value, call.value);
        expect_close(call.gradient.values(), g.gradient, TOLERANCE);
    }
}

TEST(Hv, SetsTheTangentCountsToWhatItCarries)
{
    const Problem p = problem();
    const Network net(p.shape.text());
    const Numbers v(std::size_t{p.nw()} * (p.nw() + 1));
    const auto expect_counts = [](std::uint64_t n) {
        EXPECT_EQ(n, g_ndd);
        EXPECT_EQ(n, yafad::FO::Dynamic::NDIR);
    };
    for (const unsigned nv : {3u, 0u, 1u, p.nw()}) {
        call_Hv(net, p, v, nv);
        expect_counts(nv);
        call_Jv(net, p, v, nv + 1);
        expect_counts(nv + 1);
    }
    // In row order it is the number of weights, whatever the caller passes.
    const RowOrder row_order;
    for (const unsigned nv : {3u, 0u, 1u, p.nw()}) {
        vemk_major(nullptr, 0);
        call_Hv(net, p, v, 2);
        vemk_major(nullptr, 1);
        call_Hv(net, p, v, nv);
        expect_counts(p.nw());
        vemk_major(nullptr, 0);
        call_Hv(net, p, v, 2);
        vemk_major(nullptr, 1);
        call_Jv(net, p, v, nv);
        expect_counts(p.nw());
    }
}

TEST(Hv, SharesTheTangentCountsWithNoneButJvAndCreation)
{
    const Problem p = problem();
    const Network net(p.shape.text());
    call_Hv(net, p, Numbers(std::size_t{p.nw()} * 5), 5);
    call_g(net, p);
    call_vJ(net, p, Numbers(p.elements()));
    call_vJ_vec(net, p, Numbers(2 * p.elements()), 2);
    EXPECT_EQ(5u, g_ndd);
    EXPECT_EQ(5u, yafad::FO::Dynamic::NDIR);
    // Every creation sets the one count and leaves the other.
    for (int i = 0; i < 2; ++i) {
        const Network other("1 1 2 1 8 1 1 id sum");
        EXPECT_EQ(1u, g_ndd);
        EXPECT_EQ(5u, yafad::FO::Dynamic::NDIR);
        call_Jv(net, p, Numbers(std::size_t{p.nw()} * 5), 5);
    }
    // Even one of a text that describes no network.
    const Capture err = Capture::error();
    const Network invalid("0");
    EXPECT_EQ(1u, g_ndd);
    EXPECT_EQ(5u, yafad::FO::Dynamic::NDIR);
}

namespace {

// No inputs reach the output: y = atan(b), with the single weight b.
Problem single_weight(double b)
{
    Problem p;
    p.shape = {.sizes = {1, 0}, .activation = "atan"};
    p.nrows = 3;
    p.xcols = 1;
    p.w = {b};
    p.x = {1, 2, 3};
    p.y = {0.5, 0.25, -3};
    return p;
}

}  // namespace

TEST(Hv, OfASingleWeightAlongASingleTangentIgnoresTheTangent)
{
    const Problem p = single_weight(0.5);
    const Network net(p.shape.text());
    ASSERT_EQ(1u, vemk_numel(net));
    const double slope = 1 / 1.25;
    for (const int order : {0, 1}) {
        const RowOrder row_order(order);
        for (const double entry : {17.0, 0.0, QUIET_NAN, INF}) {
            const HessianProducts products = call_Hv(net, p, {entry}, 1);
            // atan'' = -2b/(1 + b^2)^2, to a few roundings
            EXPECT_NEAR(-slope * slope, products.hv[0], 4 * EPS);
            EXPECT_NEAR(slope, products.gradient[0], 4 * EPS);
            EXPECT_NEAR(std::atan(0.5) - (0.5 + 0.25 - 3) / 3, products.value, 8 * EPS);
        }
        HvCall call(p, {1.0}, 1);
        call.v = nullptr;
        ASSERT_EQ(0, call.run(net));
        EXPECT_NEAR(-slope * slope, call.hv.values()[0], 4 * EPS);
        EXPECT_EQ(1u, g_ndd);
    }
}

TEST(Hv, OfASingleWeightAlongSeveralTangentsReadsThem)
{
    const Problem p = single_weight(0.5);
    const Network net(p.shape.text());
    const HessianProducts products = call_Hv(net, p, {2, -3, 0}, 3);
    const double curvature = -1 / (1.25 * 1.25);
    expect_close(products.hv, plain::Reals{2 * curvature, -3 * curvature, 0}, 8 * EPS);
}

TEST(Hv, OfSeveralWeightsAlongASingleTangentReadsIt)
{
    const Problem p = problem();
    const Network net(p.shape.text());
    Numbers v(p.nw(), 0.0);
    EXPECT_EQ(Numbers(p.nw(), 0.0), call_Hv(net, p, v, 1).hv);
}

TEST(Hv, AlongOutputBiasesIsZeroForALinearObjective)
{
    const Problem p = problem("id", "sum");
    const Network net(p.shape.text());
    Numbers v(p.nw());
    v[p.shape.offset(1)] = 1.0;
    v[p.shape.offset(1) + 1] = -2.0;
    EXPECT_EQ(Numbers(p.nw(), 0.0), call_Hv(net, p, v, 1).hv);
    // And along an output weight it is not.
    v.back() = 1.0;
    EXPECT_GT(largest(call_Hv(net, p, v, 1).hv), 0.01);
}

TEST(Hv, WithoutWeightsUsesTheHandlesOwnOnes)
{
    const Problem p = problem();
    const Network net(p.shape.text());
    Random random(5);
    const Numbers v = random.list(2 * std::size_t{p.nw()});
    const auto run_without_weights = [&] {
        HvCall call(p, v, 2);
        call.w = nullptr;
        EXPECT_EQ(0, call.run(net));
        return HessianProducts{{call.value, call.gradient.values()}, call.hv.values()};
    };
    Problem zeros = p;
    zeros.w.assign(p.w.size(), 0.0);
    EXPECT_EQ(bits_of(call_Hv(net, zeros, v, 2).hv), bits_of(run_without_weights().hv));

    ASSERT_EQ(0, vemk_setweights(net, p.w.data(), p.nw()));
    const HessianProducts own = run_without_weights(), given = call_Hv(net, p, v, 2);
    EXPECT_EQ(bits(given.value), bits(own.value));
    EXPECT_EQ(bits_of(given.gradient), bits_of(own.gradient));
    EXPECT_EQ(bits_of(given.hv), bits_of(own.hv));
}

TEST(Hv, TakesZerosForNullInputs)
{
    const Problem p = problem();
    const Network net(p.shape.text());
    Random random(6);
    const Numbers v = random.list(2 * std::size_t{p.nw()});
    const auto expect_like = [&](HvCall& call, const Problem& with, const Numbers& tangents) {
        ASSERT_EQ(0, call.run(net));
        const HessianProducts expected = call_Hv(net, with, tangents, 2);
        EXPECT_EQ(bits(expected.value), bits(call.value));
        EXPECT_EQ(bits_of(expected.gradient), bits_of(call.gradient.values()));
        EXPECT_EQ(bits_of(expected.hv), bits_of(call.hv.values()));
    };
    HvCall call(p, v, 2);
    call.v = nullptr;
    expect_like(call, p, Numbers(v.size(), 0.0));

    Problem zeros = p;
    zeros.x.assign(p.x.size(), 0.0);
    call.v = v.data();
    call.x = nullptr;
    expect_like(call, zeros, v);

    zeros = p;
    zeros.y.assign(p.y.size(), 0.0);
    call.x = p.x.data();
    call.y = nullptr;
    expect_like(call, zeros, v);
}

TEST(Hv, SkipsNullOutputs)
{
    const Problem p = problem();
    const Network net(p.shape.text());
    Random random(7);
    const Numbers v = random.list(2 * std::size_t{p.nw()});
    const HessianProducts all = call_Hv(net, p, v, 2);
    const auto run = [&](double* value, double* gradient, double* hv) {
        return vemk_Hv(net,
                       p.w.data(),
                       p.nw(),
                       v.data(),
                       2,
                       p.x.data(),
                       p.y.data(),
                       p.nrows,
                       p.xcols,
                       p.ycols(),
                       value,
                       gradient,
                       hv);
    };
    double value = UNTOUCHED;
    Output gradient(p.nw()), hv(2 * std::size_t{p.nw()});
    EXPECT_EQ(0, run(nullptr, nullptr, nullptr));
    EXPECT_EQ(0, run(&value, nullptr, nullptr));
    EXPECT_EQ(bits(all.value), bits(value));
    EXPECT_EQ(0, run(nullptr, gradient.data(), nullptr));
    EXPECT_EQ(bits_of(all.gradient), bits_of(gradient.values()));
    EXPECT_EQ(0, run(nullptr, nullptr, hv.data()));
    EXPECT_EQ(bits_of(all.hv), bits_of(hv.values()));
}

TEST(Hv, MayWriteOverItsInputs)
{
    const Problem p = problem();
    const Network net(p.shape.text());
    Random random(8);
    const Numbers v = random.list(2 * std::size_t{p.nw()});
    const HessianProducts expected = call_Hv(net, p, v, 2);
    Numbers w = p.w, tangents = v;
    double value = 0;
    ASSERT_EQ(0,
              vemk_Hv(net,
                      w.data(),
                      p.nw(),
                      tangents.data(),
                      2,
                      p.x.data(),
                      p.y.data(),
                      p.nrows,
                      p.xcols,
                      p.ycols(),
                      &value,
                      w.data(),
                      tangents.data()));
    EXPECT_EQ(bits_of(expected.gradient), bits_of(w));
    EXPECT_EQ(bits_of(expected.hv), bits_of(tangents));
}

TEST(Hv, LeavesTheHandleAsItWas)
{
    const Problem p = problem();
    const Network net(p.shape.text());
    Random random(9);
    const Numbers own = random.list(p.nw());
    vemk_setweights(net, own.data(), p.nw());
    const Numbers v = random.list(3 * std::size_t{p.nw()});
    const HessianProducts first = call_Hv(net, p, v, 3);
    call_Hv(net, p, random.list(p.nw()), 1);
    // Another number of tangents in between leaves no trace.
    const HessianProducts again = call_Hv(net, p, v, 3);
    EXPECT_EQ(bits_of(first.hv), bits_of(again.hv));
    EXPECT_EQ(bits_of(first.gradient), bits_of(again.gradient));
    Numbers stored(p.nw());
    vemk_getweights(net, stored.data(), p.nw());
    EXPECT_EQ(bits_of(own), bits_of(stored));
}

TEST(Hv, HasTheValueAndGradientOfG)
{
    for (const char* activation : ACTIVATIONS) {
        for (const char* norm : NORMS) {
            for (const int batch : {2, 8}) {
                const Problem p = problem(activation, norm);
                const Network net(p.shape.text());
                vemk_setbatch(net, batch);
                const Gradient g = call_g(net, p);
                Random random(10);
                const HessianProducts products =
                    call_Hv(net, p, random.list(3 * std::size_t{p.nw()}), 3);
                // The carriers' values take the way of the doubles: nothing is rounded otherwise.
                EXPECT_EQ(bits(g.value), bits(products.value));
                EXPECT_EQ(bits_of(g.gradient), bits_of(products.gradient));
            }
        }
    }
}

TEST(Hv, TakesNetworksWithoutHiddenUnitsAndBatchesWithoutColumns)
{
    for (const std::vector<unsigned>& sizes :
         {std::vector<unsigned>{2, 0}, {0, 3}, {0, 0}, {2, 0, 3}, {2, 3, 0}}) {
        for (const unsigned xcols : {0u, 2u}) {
            if (xcols > sizes[0]) continue;
            Random random(11);
            Problem p;
            p.shape = {.numin = 2, .numout = 2, .sizes = sizes, .activation = "atan"};
            p.nrows = 3;
            p.xcols = xcols;
            p.fill(random);
            SCOPED_TRACE(described(p));
            const Network net(p.shape.text());
            ASSERT_EQ(p.nw(), vemk_numel(net));
            const Numbers v = random.list(2 * std::size_t{p.nw()});
            const HessianProducts products = call_Hv(net, p, v, 2);
            expect_products(p, v, 2, products.hv);
            expect_close(
                products.gradient, p.shape.gradient(p.w, p.x, p.y, p.nrows, p.xcols), TOLERANCE);
        }
    }
}

TEST(Hv, PadsMissingColumnsWithZeros)
{
    Problem p = problem();
    p.xcols = 1;
    p.x.resize(p.nrows);
    Problem padded = p;
    padded.xcols = 3;
    padded.x.assign(std::size_t{p.nrows} * 3, 0.0);
    for (std::size_t r = 0; r < p.nrows; ++r) padded.x[3 * r] = p.x[r];
    const Network net(p.shape.text());
    Random random(12);
    const Numbers v = random.list(2 * std::size_t{p.nw()});
    EXPECT_EQ(bits_of(call_Hv(net, padded, v, 2).hv), bits_of(call_Hv(net, p, v, 2).hv));
}

TEST(Hv, PassesAQuietNanOn)
{
    for (const char* activation : ACTIVATIONS) {
        for (const char* norm : NORMS) {
            Problem p = problem(activation, norm);
            p.x[4] = QUIET_NAN;
            const Network net(p.shape.text());
            Random random(13);
            const HessianProducts products = call_Hv(net, p, random.list(p.nw()), 1);
            EXPECT_TRUE(std::isnan(products.value));
        }
    }
}

TEST(Hv, SlicesItsRows)
{
    // Slices and threads in every relation to the rows: batch above and below, threads above the slices.
    const Problem p = problem("atan");
    const Network net(p.shape.text());
    Random random(14);
    const Numbers v = random.list(3 * std::size_t{p.nw()});
    for (const int batch : {1, 2, 3, 4, 5, 6, 1000}) {
        for (const unsigned threads : {1u, 2u, 3u, 7u}) {
            SCOPED_TRACE(testing::Message() << batch << " rows, " << threads << " threads");
            ASSERT_EQ(0, vemk_setpar(net, threads, batch));
            expect_products(p, v, 3, call_Hv(net, p, v, 3).hv);
        }
    }
}
