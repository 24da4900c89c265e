#include "jacobian/weighted_products.h"

namespace {

Numbers unit(std::size_t n, std::size_t i)
{
    Numbers u(n);
    u[i] = 1.0;
    return u;
}

// vemk_vJ_vec with one cotangent in place of vemk_vJ.
TransposedProducts call_vJ_vec_once(VEMKNInfo* net, const Problem& p, const Numbers& u)
{
    return call_vJ_vec(net, p, u, 1);
}

// What both entry points have in common.
struct Variant {
    const char* name;
    TransposedProducts (*call)(VEMKNInfo* net, const Problem& p, const Numbers& u);
    // All arguments as they stand.
    int (*run)(VEMKNInfo* net,
               const Problem& p,
               const double* w,
               const double* u,
               const double* x,
               const double* y,
               double* r_out,
               double* g_out);
};

int run_vJ(VEMKNInfo* net,
           const Problem& p,
           const double* w,
           const double* u,
           const double* x,
           const double* y,
           double* r_out,
           double* g_out)
{
    return vemk_vJ(net, w, p.nw(), u, 0, x, y, p.nrows, p.xcols, p.ycols(), r_out, g_out);
}

int run_vJ_vec(VEMKNInfo* net,
               const Problem& p,
               const double* w,
               const double* u,
               const double* x,
               const double* y,
               double* r_out,
               double* g_out)
{
    return vemk_vJ_vec(net, w, p.nw(), u, 1, x, y, p.nrows, p.xcols, p.ycols(), r_out, g_out);
}

constexpr Variant VARIANTS[] = {{"vJ", call_vJ, run_vJ}, {"vJ_vec", call_vJ_vec_once, run_vJ_vec}};

void PrintTo(const Variant& variant, std::ostream* out)
{
    *out << variant.name;
}

std::string name_of(const testing::TestParamInfo<Variant>& instance)
{
    return instance.param.name;
}

class VJ : public testing::TestWithParam<Variant> {
protected:
    TransposedProducts call(VEMKNInfo* net, const Problem& p, const Numbers& u) const
    {
        return GetParam().call(net, p, u);
    }
};

}  // namespace

TEST_P(VJ, GivesTheResidualsAndTheWeightedGradient)
{
    for (const char* activation : ACTIVATIONS) {
        for (const char* norm : NORMS) {
            const Problem p = problem(activation, norm);
            SCOPED_TRACE(described(p));
            const Network net(p.shape.text());
            Random random(2);
            const Numbers u = random.list(p.elements());
            const TransposedProducts products = call(net, p, u);
            expect_close(products.r, plain_residuals(p), TOLERANCE, "residual");
            expect_close(products.g, plain_product(p, u), TOLERANCE, "product");
        }
    }
}

TEST_P(VJ, GivesTheResidualsAlsoUnderTheLikelihood)
{
    // Not its element norms: those are what vemk_Jv gives.
    const Problem p = problem();
    const Network net(p.shape.text());
    Output residual(p.elements());
    ASSERT_EQ(0,
              vemk_residual(net,
                            p.w.data(),
                            p.nw(),
                            p.x.data(),
                            p.y.data(),
                            p.nrows,
                            p.xcols,
                            p.ycols(),
                            residual.data()));
    expect_close(call(net, p, Numbers(p.elements())).r, residual.values(), TOLERANCE);
}

TEST_P(VJ, GivesARowOfTheJacobianForAUnitCotangent)
{
    const Problem p = problem();
    const Network net(p.shape.text());
    const plain::Reals J = plain_jacobian(p);
    for (std::size_t e = 0; e < p.elements(); ++e) {
        const auto row = J.begin() + static_cast<std::ptrdiff_t>(e * p.nw());
        expect_close(call(net, p, unit(p.elements(), e)).g,
                     plain::Reals(row, row + p.nw()),
                     TOLERANCE,
                     "row " + std::to_string(e) + ", weight");
    }
}

TEST_P(VJ, OfOnesIsTheGradientOfTheSumOfTheResiduals)
{
    const Problem p = problem("softplus", "sum");
    const Network net(p.shape.text());
    const Gradient mean = call_g(net, p);
    plain::Reals sum;
    for (const double g : mean.gradient) {
        sum.push_back(static_cast<long double>(g) * static_cast<long double>(p.elements()));
    }
    expect_close(call(net, p, Numbers(p.elements(), 1.0)).g, sum, TOLERANCE);
}

TEST_P(VJ, OfTheMeanCotangentIsTheGradient)
{
    const Problem p = problem();
    const Network net(p.shape.text());
    const Numbers mean(p.elements(), 1.0 / static_cast<double>(p.elements()));
    expect_close(call(net, p, mean).g, call_g(net, p).gradient, TOLERANCE);
}

TEST_P(VJ, OfZerosIsZeroAndStillGivesTheResiduals)
{
    const Problem p = problem();
    const Network net(p.shape.text());
    const TransposedProducts products = call(net, p, Numbers(p.elements()));
    // A negative zero is one too.
    EXPECT_EQ(Numbers(p.nw()), products.g);
    expect_close(products.r, plain_residuals(p), TOLERANCE);
}

TEST_P(VJ, DoesNotLookAtTheStorageOrder)
{
    const Problem p = problem();
    const Network net(p.shape.text());
    Random random(3);
    const Numbers u = random.list(p.elements());
    const TransposedProducts expected = call(net, p, u);
    const RowOrder row_order;
    const TransposedProducts products = call(net, p, u);
    EXPECT_EQ(bits_of(expected.r), bits_of(products.r));
    EXPECT_EQ(bits_of(expected.g), bits_of(products.g));
}

TEST_P(VJ, WithoutWeightsUsesTheHandlesOwnOnes)
{
    const Problem p = problem();
    const Network net(p.shape.text());
    Random random(4);
    const Numbers u = random.list(p.elements());
    const TransposedProducts expected = call(net, p, u);
    ASSERT_EQ(0, vemk_setweights(net, p.w.data(), p.nw()));
    Output r(p.elements()), g(p.nw());
    ASSERT_EQ(
        0, GetParam().run(net, p, nullptr, u.data(), p.x.data(), p.y.data(), r.data(), g.data()));
    EXPECT_EQ(bits_of(expected.r), bits_of(r.values()));
    EXPECT_EQ(bits_of(expected.g), bits_of(g.values()));
}

TEST_P(VJ, TakesZerosForNullInputs)
{
    const Problem p = problem();
    const Network net(p.shape.text());
    Random random(5);
    const Numbers u = random.list(p.elements());
    const auto expect_like = [&](const double* given_u,
                                 const double* x,
                                 const double* y,
                                 const Problem& with,
                                 const Numbers& with_u) {
        Output r(p.elements()), g(p.nw());
        ASSERT_EQ(0, GetParam().run(net, p, p.w.data(), given_u, x, y, r.data(), g.data()));
        const TransposedProducts expected = call(net, with, with_u);
        EXPECT_EQ(bits_of(expected.r), bits_of(r.values()));
        EXPECT_EQ(bits_of(expected.g), bits_of(g.values()));
    };
    expect_like(nullptr, p.x.data(), p.y.data(), p, Numbers(u.size()));
    Problem zeros = p;
    zeros.x.assign(p.x.size(), 0.0);
    expect_like(u.data(), nullptr, p.y.data(), zeros, u);
    zeros = p;
    zeros.y.assign(p.y.size(), 0.0);
    expect_like(u.data(), p.x.data(), nullptr, zeros, u);
}

TEST_P(VJ, SkipsNullOutputs)
{
    const Problem p = problem();
    const Network net(p.shape.text());
    Random random(6);
    const Numbers u = random.list(p.elements());
    const TransposedProducts all = call(net, p, u);
    const auto run = [&](double* r, double* g) {
        return GetParam().run(net, p, p.w.data(), u.data(), p.x.data(), p.y.data(), r, g);
    };
    Output r(p.elements()), g(p.nw());
    EXPECT_EQ(0, run(nullptr, nullptr));
    EXPECT_EQ(0, run(r.data(), nullptr));
    EXPECT_EQ(bits_of(all.r), bits_of(r.values()));
    EXPECT_EQ(0, run(nullptr, g.data()));
    EXPECT_EQ(bits_of(all.g), bits_of(g.values()));
}

TEST_P(VJ, MayWriteOverItsInputs)
{
    const Problem p = problem();
    const Network net(p.shape.text());
    Random random(7);
    Numbers u = random.list(p.elements()), w = p.w;
    const TransposedProducts expected = call(net, p, u);
    ASSERT_EQ(
        0, GetParam().run(net, p, w.data(), u.data(), p.x.data(), p.y.data(), u.data(), w.data()));
    EXPECT_EQ(bits_of(expected.r), bits_of(u));
    EXPECT_EQ(bits_of(expected.g), bits_of(w));
}

TEST_P(VJ, LeavesTheHandleAsItWas)
{
    const Problem p = problem();
    const Network net(p.shape.text());
    Random random(8);
    const Numbers own = random.list(p.nw());
    vemk_setweights(net, own.data(), p.nw());
    call(net, p, random.list(p.elements()));
    Numbers stored(p.nw());
    vemk_getweights(net, stored.data(), p.nw());
    EXPECT_EQ(bits_of(own), bits_of(stored));
}

TEST_P(VJ, OfNoRowsIsZero)
{
    Problem p = problem();
    p.nrows = 0;
    p.x.clear();
    p.y.clear();
    const Network net(p.shape.text());
    for (const char* norm : NORMS) {
        p.shape.norm = norm;
        EXPECT_EQ(Numbers(p.nw()), call(net, p, {}).g);
    }
    Output r(0), g(p.nw());
    ASSERT_EQ(0, GetParam().run(net, p, p.w.data(), nullptr, nullptr, nullptr, r.data(), g.data()));
    EXPECT_TRUE(r.untouched());
}

TEST_P(VJ, TakesNetworksWithoutHiddenUnitsAndBatchesWithoutColumns)
{
    for (const std::vector<unsigned>& sizes :
         {std::vector<unsigned>{2, 0}, {0, 3}, {0, 0}, {2, 0, 3}, {2, 3, 0}}) {
        for (const unsigned xcols : {0u, 2u}) {
            if (xcols > sizes[0]) continue;
            Random random(9);
            Problem p;
            p.shape = {.numin = 2, .numout = 2, .sizes = sizes, .activation = "atan"};
            p.nrows = 3;
            p.xcols = xcols;
            p.fill(random);
            SCOPED_TRACE(described(p));
            const Network net(p.shape.text());
            const Numbers u = random.list(p.elements());
            const TransposedProducts products = call(net, p, u);
            expect_close(products.g, plain_product(p, u), TOLERANCE);
            expect_close(products.r, plain_residuals(p), TOLERANCE);
        }
    }
}

TEST_P(VJ, TakesTheChainOfSeveralPassesBackwards)
{
    for (const unsigned nmult : {2u, 3u}) {
        Random random(10);
        Problem p;
        p.shape = {
            .numin = 2, .numout = 2, .nmult = nmult, .sizes = {3, 4, 3}, .activation = "atan"};
        p.nrows = 4;
        p.xcols = 2;
        p.fill(random);
        const Network net(p.shape.text());
        const Numbers u = random.list(p.elements());
        expect_close(call(net, p, u).g, plain_product(p, u), TOLERANCE);
    }
}

TEST_P(VJ, IsTheSameWithAnySlicesAndThreads)
{
    const Problem p = problem("atan");
    const Network net(p.shape.text());
    Random random(11);
    const Numbers u = random.list(p.elements());
    const plain::Reals truth = plain_product(p, u);
    for (const int batch : {1, 2, 3, 4, 5, 6, 1000}) {
        for (const unsigned threads : {1u, 2u, 3u, 7u}) {
            SCOPED_TRACE(testing::Message() << batch << " rows, " << threads << " threads");
            ASSERT_EQ(0, vemk_setpar(net, threads, batch));
            const TransposedProducts products = call(net, p, u);
            expect_close(products.g, truth, TOLERANCE);
            expect_close(products.r, plain_residuals(p), TOLERANCE);
        }
    }
}

TEST_P(VJ, PassesAQuietNanOn)
{
    for (const char* activation : ACTIVATIONS) {
        for (const char* norm : NORMS) {
            Problem p = problem(activation, norm);
            p.x[3] = QUIET_NAN;
            const Network net(p.shape.text());
            const TransposedProducts products = call(net, p, Numbers(p.elements(), 1.0));
            for (std::size_t e = 0; e < p.elements(); ++e) {
                EXPECT_EQ(e / 2 == 1, std::isnan(products.r[e])) << e;
            }
            // relu may select its zero slope in place of what comes in.
            if (p.shape.activation == "relu") continue;
            Numbers nan(p.elements(), 1.0);
            nan[0] = QUIET_NAN;
            p = problem(activation, norm);
            EXPECT_TRUE(std::isnan(call(net, p, nan).g[p.shape.offset(1)]));
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Entries, VJ, testing::ValuesIn(VARIANTS), name_of);
