#include <cmath>
#include <limits>

#include "jacobian/derivative_calls.h"

namespace {

// 2-3-2, numel = 3 + 6 + 2 + 6.
Problem problem(const char* activation = "softplus", const char* norm = "sum_log_dnorm_fat")
{
    return small_problem(2, 3, activation, norm);
}

// Complex steps are exact to rounding; numbers of the size of ten, in sums of up to twenty.
constexpr double TOLERANCE = 2000 * EPS;

// jac against the plain Jacobian times every tangent, in the order of the moment.
void expect_products(const Problem& p, const Numbers& v, unsigned nv, const Numbers& jac)
{
    const plain::Reals J = plain_jacobian(p);
    for (unsigned d = 0; d < nv; ++d) {
        plain::Reals truth(p.elements());
        for (std::size_t e = 0; e < p.elements(); ++e) {
            for (std::size_t k = 0; k < p.nw(); ++k) {
                truth[e] += J[e * p.nw() + k] * v[place(k, d, p.nw(), nv)];
            }
        }
        expect_close(tangent(jac, d, p.elements(), nv),
                     truth,
                     TOLERANCE,
                     "tangent " + std::to_string(d) + ", element");
    }
}

// All arguments of one call, so that a test can change one of them.
struct JvCall {
    explicit JvCall(const Problem& p, const Numbers& tangents, unsigned n)
        : w(p.w.data()),
          nw(p.nw()),
          v(tangents.data()),
          nv(n),
          x(p.x.data()),
          y(p.y.data()),
          nrows(p.nrows),
          xcols(p.xcols),
          ycols(p.ycols()),
          f(p.elements()),
          jac(p.elements() * nv)
    {
    }

    int run(VEMKNInfo* net)
    {
        return vemk_Jv(net, w, nw, v, nv, x, y, nrows, xcols, ycols, f.data(), jac.data());
    }

    const double* w;
    unsigned nw;
    const double* v;
    unsigned nv;
    const double* x;
    const double* y;
    unsigned nrows, xcols, ycols;
    Output f, jac;
};

}  // namespace

TEST(Jv, GivesTheFullJacobianAlongTheIdentityInBothOrders)
{
    for (const char* activation : ACTIVATIONS) {
        for (const char* norm : NORMS) {
            const Problem p = problem(activation, norm);
            SCOPED_TRACE(described(p));
            const Network net(p.shape.text());
            for (const int order : {0, 1}) {
                const RowOrder row_order(order);
                const JacobianProducts products = call_Jv(net, p, identity(p.nw()), p.nw());
                expect_products(p, identity(p.nw()), p.nw(), products.jac);
            }
        }
    }
}

TEST(Jv, TakesAndGivesInterleavedTangentsInColumnOrder)
{
    const Problem p = problem();
    const Network net(p.shape.text());
    for (const unsigned nv : {1u, 3u, p.nw() + 4}) {
        Random random(nv);
        const Numbers v = random.list(std::size_t{p.nw()} * nv);
        expect_products(p, v, nv, call_Jv(net, p, v, nv).jac);
    }
}

TEST(Jv, TakesAndGivesTangentsOneAfterTheOtherInRowOrder)
{
    const Problem p = problem();
    const Network net(p.shape.text());
    const RowOrder row_order;
    for (const unsigned nv : {1u, 2u, p.nw() - 1, p.nw()}) {
        SCOPED_TRACE(testing::Message() << nv << " tangents");
        Random random(nv);
        // No longer than nw*nv: tangents that are not there count as zero and are not read.
        const Numbers v = random.list(std::size_t{p.nw()} * nv);
        expect_products(p, v, nv, call_Jv(net, p, v, nv).jac);
    }
}

TEST(Jv, HasTheElementNormsOfObjvAsItsValues)
{
    for (const char* norm : NORMS) {
        const Problem p = problem("atan", norm);
        const Network net(p.shape.text());
        for (const int batch : {2, 8}) {
            vemk_setbatch(net, batch);
            Output objv(p.elements());
            ASSERT_EQ(0,
                      vemk_objv(net,
                                p.w.data(),
                                p.nw(),
                                p.x.data(),
                                p.y.data(),
                                p.nrows,
                                p.xcols,
                                p.ycols(),
                                objv.data()));
            Random random(2);
            const JacobianProducts products =
                call_Jv(net, p, random.list(3 * std::size_t{p.nw()}), 3);
            // The carriers' values take the way of the doubles: nothing is rounded otherwise.
            EXPECT_EQ(bits_of(objv.values()), bits_of(products.f));
        }
    }
}

TEST(Jv, OfTheSumNormIsThatOfTheResiduals)
{
    const Problem p = problem("softplus", "sum");
    const Network net(p.shape.text());
    const JacobianProducts products = call_Jv(net, p, identity(p.nw()), p.nw());
    expect_close(products.f, p.shape.residuals(p.w, p.x, p.y, p.nrows, p.xcols), TOLERANCE);
}

TEST(Jv, WithoutTangentsWritesTheValuesOnly)
{
    const Problem p = problem();
    const Network net(p.shape.text());
    for (const int order : {0, 1}) {
        const RowOrder row_order(order);
        JvCall call(p, {}, 0);
        ASSERT_EQ(0, call.run(net));
        EXPECT_TRUE(call.jac.untouched());
        expect_close(
            call.f.values(), p.shape.element_norms(p.w, p.x, p.y, p.nrows, p.xcols), TOLERANCE);
    }
}

TEST(Jv, OfASingleWeightAlongASingleTangentIgnoresTheTangent)
{
    Problem p;
    // No inputs reach the output: y = atan(b), with the single weight b.
    p.shape = {.sizes = {1, 0}, .activation = "atan"};
    p.nrows = 2;
    p.xcols = 1;
    p.w = {0.5};
    p.x = {1, 2};
    p.y = {0.5, -3};
    const Network net(p.shape.text());
    for (const int order : {0, 1}) {
        const RowOrder row_order(order);
        for (const double entry : {17.0, 0.0, QUIET_NAN, INF}) {
            expect_close(call_Jv(net, p, {entry}, 1).jac, plain::Reals{0.8L, 0.8L}, 4 * EPS);
        }
        JvCall call(p, {1.0}, 1);
        call.v = nullptr;
        ASSERT_EQ(0, call.run(net));
        expect_close(call.jac.values(), plain::Reals{0.8L, 0.8L}, 4 * EPS);
    }
    // Two tangents are read.
    expect_close(call_Jv(net, p, {2, -1}, 2).jac, plain::Reals{1.6L, -0.8L, 1.6L, -0.8L}, 8 * EPS);
}

// Zero times an infinite weight is NaN: the tangents of a constant are the constant times zero. Of other rows nothing is.
TEST(Jv, OfARowThatIsNotFiniteSpoilsNoOther)
{
    Random random(5);
    Problem p = problem("softplus", "sum");
    p.nrows = 100;
    p.fill(random);
    for (double& x : p.x) x = std::abs(x);
    p.w[3] = -INF;  // the first of a weight matrix
    p.x[40 * std::size_t{p.xcols}] = std::numeric_limits<double>::quiet_NaN();
    const Network net(p.shape.text());
    vemk_quiet(net, 1);
    const Numbers tangents = random.list(p.nw());
    for (const int batch : {1, 8, 1000}) {
        for (const unsigned threads : {1u, 2u}) {
            ASSERT_EQ(0, vemk_setpar(net, threads, batch));
            Numbers values(p.elements()), jac(p.elements());
            JvCall call(p, tangents, 1);
            EXPECT_EQ(1,
                      vemk_Jv(net,
                              call.w,
                              call.nw,
                              call.v,
                              call.nv,
                              call.x,
                              call.y,
                              call.nrows,
                              call.xcols,
                              call.ycols,
                              values.data(),
                              jac.data()));
            for (std::size_t i = 0; i < jac.size(); ++i) {
                EXPECT_EQ(i / p.ycols() == 40, std::isnan(jac[i])) << i << ", batch " << batch;
            }
        }
    }
}

TEST(Jv, OfNoRowsWritesNothing)
{
    Problem p = problem();
    p.nrows = 0;
    p.x.clear();
    p.y.clear();
    const Network net(p.shape.text());
    const Numbers v = identity(p.nw());
    for (const int order : {0, 1}) {
        const RowOrder row_order(order);
        JvCall call(p, v, p.nw());
        EXPECT_EQ(0, call.run(net));
        EXPECT_TRUE(call.f.untouched());
        EXPECT_TRUE(call.jac.untouched());
    }
}

TEST(Jv, WithoutWeightsUsesTheHandlesOwnOnes)
{
    const Problem p = problem();
    const Network net(p.shape.text());
    const JacobianProducts given = call_Jv(net, p, identity(p.nw()), p.nw());
    ASSERT_EQ(0, vemk_setweights(net, p.w.data(), p.nw()));
    const Numbers v = identity(p.nw());
    JvCall call(p, v, p.nw());
    call.w = nullptr;
    ASSERT_EQ(0, call.run(net));
    EXPECT_EQ(bits_of(given.f), bits_of(call.f.values()));
    EXPECT_EQ(bits_of(given.jac), bits_of(call.jac.values()));
}

TEST(Jv, TakesZerosForNullInputs)
{
    const Problem p = problem();
    const Network net(p.shape.text());
    Random random(3);
    const Numbers v = random.list(2 * std::size_t{p.nw()});
    const auto expect_like = [&](JvCall& call, const Problem& with, const Numbers& tangents) {
        ASSERT_EQ(0, call.run(net));
        const JacobianProducts expected = call_Jv(net, with, tangents, 2);
        EXPECT_EQ(bits_of(expected.f), bits_of(call.f.values()));
        EXPECT_EQ(bits_of(expected.jac), bits_of(call.jac.values()));
    };
    JvCall call(p, v, 2);
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

TEST(Jv, SkipsNullOutputs)
{
    const Problem p = problem();
    const Network net(p.shape.text());
    const Numbers v = identity(p.nw());
    const JacobianProducts all = call_Jv(net, p, v, p.nw());
    const auto run = [&](double* f, double* jac) {
        return vemk_Jv(net,
                       p.w.data(),
                       p.nw(),
                       v.data(),
                       p.nw(),
                       p.x.data(),
                       p.y.data(),
                       p.nrows,
                       p.xcols,
                       p.ycols(),
                       f,
                       jac);
    };
    Output f(p.elements()), jac(p.elements() * p.nw());
    EXPECT_EQ(0, run(nullptr, nullptr));
    EXPECT_EQ(0, run(f.data(), nullptr));
    EXPECT_EQ(bits_of(all.f), bits_of(f.values()));
    EXPECT_EQ(0, run(nullptr, jac.data()));
    EXPECT_EQ(bits_of(all.jac), bits_of(jac.values()));
}

TEST(Jv, MayWriteOverItsInputs)
{
    const Problem p = problem();
    const Network net(p.shape.text());
    Random random(4);
    const Numbers v = random.list(2 * std::size_t{p.nw()});
    const JacobianProducts expected = call_Jv(net, p, v, 2);
    Numbers y = p.y, tangents = v;
    // elements()*2 products fit into nw*2 tangents.
    ASSERT_EQ(0,
              vemk_Jv(net,
                      p.w.data(),
                      p.nw(),
                      tangents.data(),
                      2,
                      p.x.data(),
                      y.data(),
                      p.nrows,
                      p.xcols,
                      p.ycols(),
                      y.data(),
                      tangents.data()));
    tangents.resize(expected.jac.size());
    EXPECT_EQ(bits_of(expected.f), bits_of(y));
    EXPECT_EQ(bits_of(expected.jac), bits_of(tangents));
}

TEST(Jv, LeavesTheHandleAsItWas)
{
    const Problem p = problem();
    const Network net(p.shape.text());
    Random random(5);
    const Numbers own = random.list(p.nw());
    vemk_setweights(net, own.data(), p.nw());
    const Numbers v = random.list(3 * std::size_t{p.nw()});
    const JacobianProducts first = call_Jv(net, p, v, 3);
    call_Jv(net, p, random.list(p.nw()), 1);
    EXPECT_EQ(bits_of(first.jac), bits_of(call_Jv(net, p, v, 3).jac));
    Numbers stored(p.nw());
    vemk_getweights(net, stored.data(), p.nw());
    EXPECT_EQ(bits_of(own), bits_of(stored));
}

TEST(Jv, TakesNetworksWithoutHiddenUnitsAndBatchesWithoutColumns)
{
    for (const std::vector<unsigned>& sizes :
         {std::vector<unsigned>{2, 0}, {0, 3}, {0, 0}, {2, 0, 3}, {2, 3, 0}}) {
        for (const unsigned xcols : {0u, 2u}) {
            if (xcols > sizes[0]) continue;
            Random random(6);
            Problem p;
            p.shape = {.numin = 2, .numout = 2, .sizes = sizes, .activation = "atan"};
            p.nrows = 3;
            p.xcols = xcols;
            p.fill(random);
            SCOPED_TRACE(described(p));
            const Network net(p.shape.text());
            const Numbers v = identity(p.nw());
            expect_products(p, v, p.nw(), call_Jv(net, p, v, p.nw()).jac);
        }
    }
}

TEST(Jv, TakesTheChainOfSeveralPasses)
{
    for (const unsigned nmult : {2u, 3u}) {
        Random random(7);
        Problem p;
        p.shape = {
            .numin = 2, .numout = 2, .nmult = nmult, .sizes = {3, 4, 3}, .activation = "atan"};
        p.nrows = 4;
        p.xcols = 2;
        p.fill(random);
        const Network net(p.shape.text());
        const Numbers v = identity(p.nw());
        expect_products(p, v, p.nw(), call_Jv(net, p, v, p.nw()).jac);
    }
}

TEST(Jv, TakesTargetsAsConstants)
{
    // A NaN target makes its own residual NaN, and leaves the derivatives of the plain sum alone.
    Problem p = problem("atan", "sum");
    const Network net(p.shape.text());
    const Numbers v = identity(p.nw());
    const JacobianProducts before = call_Jv(net, p, v, p.nw());
    p.y[3] = QUIET_NAN;
    const JacobianProducts products = call_Jv(net, p, v, p.nw());
    EXPECT_TRUE(std::isnan(products.f[3]));
    EXPECT_EQ(bits_of(before.jac), bits_of(products.jac));
}

TEST(Jv, PassesAQuietNanInputOnToItsOwnRow)
{
    for (const char* activation : ACTIVATIONS) {
        for (const char* norm : NORMS) {
            Problem p = problem(activation, norm);
            const Network net(p.shape.text());
            const Numbers v = identity(p.nw());
            const JacobianProducts before = call_Jv(net, p, v, p.nw());
            p.x[3] = QUIET_NAN;
            const JacobianProducts products = call_Jv(net, p, v, p.nw());
            for (std::size_t e = 0; e < p.elements(); ++e) {
                // Row 1 holds the NaN.
                EXPECT_EQ(e / 2 == 1, std::isnan(products.f[e])) << e;
                for (std::size_t d = 0; d < p.nw(); ++d) {
                    const double computed = products.jac[e * p.nw() + d];
                    if (e / 2 == 1) {
                        // The tangents of the inputs are inputs times 0.0, so NaN along every tangent.
                        EXPECT_TRUE(std::isnan(computed)) << e << ", " << d;
                    } else {
                        EXPECT_NEAR(before.jac[e * p.nw() + d], computed, TOLERANCE);
                    }
                }
            }
        }
    }
}

TEST(Jv, OfAQuietHandleGivesWhatTheArithmeticGives)
{
    // An infinite input of a linear network: its outputs and their derivatives would be infinite, but its own tangent
    // is inf * 0.0.
    Problem p;
    p.shape = {.sizes = {1, 1}, .activation = "id"};
    p.nrows = 2;
    p.xcols = 1;
    p.w.assign(4, 1.0);
    p.x = {INF, 2};
    p.y = {0, 0};
    const Network net(p.shape.text());
    ASSERT_EQ(0, vemk_quiet(net, 1));
    const Numbers v(4, 1.0);
    JvCall call(p, v, 1);
    EXPECT_EQ(1, call.run(net));
    EXPECT_EQ(INF, call.f.values()[0]);
    EXPECT_TRUE(std::isnan(call.jac.values()[0]));
    // (2*1 + 1)*1 + 1 and 1*(2*1 + 1) + (2*1 + 1)*1 + 1
    EXPECT_EQ(4.0, call.f.values()[1]);
    EXPECT_EQ(7.0, call.jac.values()[1]);

    p.x[0] = 1;
    JvCall finite(p, v, 1);
    EXPECT_EQ(0, finite.run(net));
}

TEST(Jv, SlicesItsRows)
{
    const Problem p = problem("atan");
    const Network net(p.shape.text());
    const Numbers v = identity(p.nw());
    for (const int order : {0, 1}) {
        const RowOrder row_order(order);
        for (const int batch : {1, 2, 3, 4, 5, 6, 1000}) {
            for (const unsigned threads : {1u, 2u, 3u, 7u}) {
                SCOPED_TRACE(testing::Message() << batch << " rows, " << threads << " threads");
                ASSERT_EQ(0, vemk_setpar(net, threads, batch));
                expect_products(p, v, p.nw(), call_Jv(net, p, v, p.nw()).jac);
            }
        }
    }
}
