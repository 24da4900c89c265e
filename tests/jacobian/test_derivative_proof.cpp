#include "jacobian/derivative_calls.h"
#include "support/size.h"

// The derivative products against each other, against differences of gradients and against plain loops, over random
// networks: every activation, norm and number of passes, batches below and above the rows, one to four threads.

namespace {

const auto PROBLEMS =
    static_cast<unsigned>(trials(336));  // 7 activations, 2 norms, 3 numbers of passes, 8 times

// Slices and threads of problem i: slices longer than the batch, shorter, of one row; one to four threads.
void set_slices(VEMKNInfo* net, unsigned i, const Problem& p)
{
    const unsigned batches[] = {p.nrows + 3, p.nrows, (p.nrows + 1) / 2, 1, 2};
    ASSERT_EQ(0, vemk_setpar(net, 1 + i % 4, static_cast<int>(batches[i % 5])));
}

// The sum over e and k of |u_e J_ek v_k|: what a rounding error of a bilinear form is in proportion to.
double size_of_form(const Numbers& u, const Numbers& J, const Numbers& v)
{
    double size = 0;
    for (std::size_t e = 0; e < u.size(); ++e) {
        for (std::size_t k = 0; k < v.size(); ++k) {
            size += std::fabs(u[e] * J[e * v.size() + k] * v[k]);
        }
    }
    return size;
}

// Whether a derivative jumps somewhere. Differences then take steps so small that none of these problems' points lies
// that near to a jump, and pay for it with the digits that rounding takes.
bool has_kinks(const Problem& p)
{
    return p.shape.activation == "relu" || p.shape.norm == "sum_log_dnorm_fat";
}

constexpr int LONG_STEP = -11, SHORT_STEP = -24;

// A network of up to ten layers in a chain, each a sum of up to twenty terms: some hundreds of roundings, which later
// layers carry on, magnified a few times.
constexpr double ROUNDINGS = 2000 * EPS;

}  // namespace

TEST(DerivativeProof, JvAndVJAreTransposesOfEachOther)
{
    for (unsigned i = 0; i < PROBLEMS; ++i) {
        const Problem p = random_problem(i);
        SCOPED_TRACE(testing::Message() << "problem " << i << ", " << described(p));
        const Network net(p.shape.text());
        set_slices(net, i, p);
        Random random(i);
        const Numbers u = random.list(p.elements()), v = random.list(p.nw());
        // <u, J v> = <J^T u, v>
        const Numbers Jv = call_Jv(net, p, v, 1).jac, uJ = call_vJ(net, p, u).g;
        const Numbers J = call_Jv(net, p, identity(p.nw()), p.nw()).jac;
        const auto difference = static_cast<double>(dot(u, Jv) - dot(uJ, v));
        EXPECT_LE(std::fabs(difference), ROUNDINGS * size_of_form(u, J, v));
        // Nothing that is compared is zero throughout.
        EXPECT_TRUE(largest(J) > 0.0 || p.shape.activation == "relu");
    }
}

TEST(DerivativeProof, VJVecOfUnitCotangentsIsTheJacobianOfJvAndOfThePlainLoops)
{
    for (unsigned i = 0; i < PROBLEMS; ++i) {
        const Problem p = random_problem(i);
        SCOPED_TRACE(testing::Message() << "problem " << i << ", " << described(p));
        const Network net(p.shape.text());
        set_slices(net, i, p);
        const auto k = static_cast<unsigned>(p.elements());
        const Numbers forward = call_Jv(net, p, identity(p.nw()), p.nw()).jac;
        const TransposedProducts backward = call_vJ_vec(net, p, identity(k), k);
        // Entries of one Jacobian, whose errors are in proportion to the larger ones.
        const double tolerance = ROUNDINGS * largest(forward);
        expect_close(backward.g, forward, tolerance, "Jacobian element");
        expect_close(forward, plain_jacobian(p), tolerance, "Jacobian element");
        expect_close(backward.r,
                     p.shape.residuals(p.w, p.x, p.y, p.nrows, p.xcols),
                     ROUNDINGS * std::max(1.0, largest(backward.r)),
                     "residual");
    }
}

TEST(DerivativeProof, VJVecWithOneCotangentIsVJ)
{
    for (unsigned i = 0; i < PROBLEMS; ++i) {
        const Problem p = random_problem(i);
        SCOPED_TRACE(testing::Message() << "problem " << i << ", " << described(p));
        const Network net(p.shape.text());
        set_slices(net, i, p);
        Random random(i);
        const Numbers u = random.list(p.elements());
        const TransposedProducts one = call_vJ(net, p, u), vec = call_vJ_vec(net, p, u, 1);
        expect_close(vec.g, one.g, ROUNDINGS * largest(one.g));
        expect_close(vec.r, one.r, ROUNDINGS * std::max(1.0, largest(one.r)));
    }
}

TEST(DerivativeProof, TheHessianIsSymmetric)
{
    for (unsigned i = 0; i < PROBLEMS; ++i) {
        const Problem p = random_problem(i);
        SCOPED_TRACE(testing::Message() << "problem " << i << ", " << described(p));
        const Network net(p.shape.text());
        set_slices(net, i, p);
        Random random(i);
        const Numbers uv = random.list(2 * std::size_t{p.nw()});
        const Numbers u = tangent(uv, 0, p.nw(), 2), v = tangent(uv, 1, p.nw(), 2);
        const Numbers products = call_Hv(net, p, uv, 2).hv;
        const Numbers Hu = tangent(products, 0, p.nw(), 2);
        const Numbers Hv = tangent(products, 1, p.nw(), 2);
        const Numbers H = call_Hv(net, p, identity(p.nw()), p.nw()).hv;
        EXPECT_LE(static_cast<double>(std::fabs(dot(u, Hv) - dot(v, Hu))),
                  ROUNDINGS * size_of_form(u, H, v));
        double asymmetry = 0;
        for (std::size_t a = 0; a < p.nw(); ++a) {
            for (std::size_t b = 0; b < a; ++b) {
                asymmetry = std::max(asymmetry, std::fabs(H[a * p.nw() + b] - H[b * p.nw() + a]));
            }
        }
        EXPECT_LE(asymmetry, ROUNDINGS * largest(H));
    }
}

TEST(DerivativeProof, HvIsThePlainSecondDerivative)
{
    for (unsigned i = 0; i < PROBLEMS; i += 2) {
        const Problem p = random_problem(i);
        SCOPED_TRACE(testing::Message() << "problem " << i << ", " << described(p));
        const Network net(p.shape.text());
        set_slices(net, i, p);
        Random random(i);
        const Numbers v = random.list(p.nw());
        const HessianProducts products = call_Hv(net, p, v, 1);
        const plain::Reals gradient = p.shape.gradient(p.w, p.x, p.y, p.nrows, p.xcols);
        expect_close(products.gradient, gradient, ROUNDINGS * largest(products.gradient));
        // The differences are good to 1e-13 of a gradient, with the short step to 2^-64*2^24 = 1e-12 of it.
        const double size = std::max({1.0, largest(products.gradient), largest(products.hv)});
        expect_close(products.hv,
                     plain_hessian_product(p, v, has_kinks(p) ? SHORT_STEP : LONG_STEP),
                     (has_kinks(p) ? 1e-10 : 1e-11) * size,
                     "product");
    }
}

TEST(DerivativeProof, HvIsTheDifferenceOfGradients)
{
    for (unsigned i = 0; i < PROBLEMS; ++i) {
        const Problem p = random_problem(i);
        SCOPED_TRACE(testing::Message() << "problem " << i << ", " << described(p));
        const Network net(p.shape.text());
        set_slices(net, i, p);
        Random random(i);
        const Numbers v = random.list(p.nw());
        const HessianProducts products = call_Hv(net, p, v, 1);

        const auto gradient_at = [&](double t) {
            Problem moved = p;
            for (std::size_t k = 0; k < p.nw(); ++k) moved.w[k] += t * v[k];
            return call_g(net, moved).gradient;
        };
        // Four neighbours at distances h and 2h. With the long step what is left out is h^4/30 of the fifth derivative,
        // about 1e-12 times what the chains of passes bring along, and rounding makes about EPS/h = 1e-13 of a
        // gradient; with the short one rounding makes 1e-9 of it, times what the sums of a gradient lose.
        const double h = std::ldexp(1.0, has_kinks(p) ? SHORT_STEP : LONG_STEP);
        const Numbers a = gradient_at(h), b = gradient_at(-h);
        const Numbers c = gradient_at(2 * h), d = gradient_at(-2 * h);
        const double tolerance = has_kinks(p) ? 1e-6 : 1e-8;
        const double size = std::max({1.0, largest(products.gradient), largest(products.hv)});
        for (std::size_t k = 0; k < p.nw(); ++k) {
            const double quotient = (8 * (a[k] - b[k]) - (c[k] - d[k])) / (12 * h);
            EXPECT_NEAR(quotient, products.hv[k], tolerance * size) << "weight " << k;
        }
    }
}

TEST(DerivativeProof, HvHasTheValueAndGradientOfGToTheBit)
{
    for (unsigned i = 0; i < PROBLEMS; ++i) {
        const Problem p = random_problem(i);
        SCOPED_TRACE(testing::Message() << "problem " << i << ", " << described(p));
        const Network net(p.shape.text());
        set_slices(net, i, p);
        const Gradient g = call_g(net, p);
        for (const unsigned nv : {0u, 1u, 3u}) {
            Random random(i);
            const HessianProducts products =
                call_Hv(net, p, random.list(std::size_t{p.nw()} * nv), nv);
            ASSERT_EQ(bits(g.value), bits(products.value));
            ASSERT_EQ(bits_of(g.gradient), bits_of(products.gradient));
        }
    }
}

TEST(DerivativeProof, TangentsDoNotMix)
{
    // Each of several tangents gives what it gives alone, to the bit.
    for (unsigned i = 0; i < PROBLEMS; i += 5) {
        const Problem p = random_problem(i);
        SCOPED_TRACE(testing::Message() << "problem " << i << ", " << described(p));
        const Network net(p.shape.text());
        set_slices(net, i, p);
        Random random(i);
        const unsigned nv = 3;
        const Numbers v = random.list(std::size_t{p.nw()} * nv);
        const Numbers hv = call_Hv(net, p, v, nv).hv, jac = call_Jv(net, p, v, nv).jac;
        for (unsigned d = 0; d < nv; ++d) {
            const Numbers alone = tangent(v, d, p.nw(), nv);
            // One tangent of one weight is differentiated along 1.0, whatever it is.
            if (p.nw() == 1) continue;
            EXPECT_EQ(tangent(hv, d, p.nw(), nv), call_Hv(net, p, alone, 1).hv);
            EXPECT_EQ(tangent(jac, d, p.elements(), nv), call_Jv(net, p, alone, 1).jac);
        }
    }
}

TEST(DerivativeProof, SlicesAndThreadsDoNotChangeTheProducts)
{
    for (unsigned i = 0; i < PROBLEMS; i += 3) {
        Problem p = random_problem(i);
        Random random(i);
        p.nrows = 11;
        p.fill(random);
        SCOPED_TRACE(testing::Message() << "problem " << i << ", " << described(p));
        const Network net(p.shape.text());
        const Numbers v = random.list(2 * std::size_t{p.nw()}), u = random.list(p.elements());
        ASSERT_EQ(0, vemk_setpar(net, 1, 11));
        const HessianProducts hv = call_Hv(net, p, v, 2);
        const JacobianProducts jv = call_Jv(net, p, v, 2);
        const TransposedProducts vj = call_vJ(net, p, u);
        for (const int batch : {1, 4, 10}) {
            for (const unsigned threads : {1u, 2u, 3u, 4u}) {
                ASSERT_EQ(0, vemk_setpar(net, threads, batch));
                const HessianProducts sliced = call_Hv(net, p, v, 2);
                // Up to the order of the sums.
                EXPECT_NEAR(hv.value, sliced.value, ROUNDINGS * std::max(1.0, std::fabs(hv.value)));
                expect_close(
                    sliced.gradient, hv.gradient, ROUNDINGS * std::max(1.0, largest(hv.gradient)));
                expect_close(sliced.hv, hv.hv, ROUNDINGS * std::max(1.0, largest(hv.hv)));
                expect_close(
                    call_Jv(net, p, v, 2).jac, jv.jac, ROUNDINGS * std::max(1.0, largest(jv.jac)));
                expect_close(call_vJ(net, p, u).g, vj.g, ROUNDINGS * std::max(1.0, largest(vj.g)));
            }
        }
    }
}

TEST(DerivativeProof, HoldsForWiderLayersAndLongerBatches)
{
    // Products of the sizes for which BLAS has kernels of its own, and more rows than one block of the library.
    for (const char* activation : {"softplus", "atan", "relu"}) {
        for (const char* norm : NORMS) {
            Random random(1);
            Problem p;
            p.shape = {.numin = 8,
                       .numout = 3,
                       .sizes = {8, 33, 20},
                       .activation = activation,
                       .norm = norm};
            p.nrows = 150;
            p.xcols = 8;
            p.fill(random);
            for (double& w : p.w) w *= 0.5;
            SCOPED_TRACE(described(p));
            const Network net(p.shape.text());
            const Numbers u = random.list(p.elements()), uv = random.list(2 * std::size_t{p.nw()});
            const Numbers a = tangent(uv, 0, p.nw(), 2), b = tangent(uv, 1, p.nw(), 2);
            for (const int batch : {32, 70, 150}) {
                ASSERT_EQ(0, vemk_setpar(net, 2, batch));
                const Gradient g = call_g(net, p);
                const HessianProducts products = call_Hv(net, p, uv, 2);
                EXPECT_EQ(bits(g.value), bits(products.value));
                EXPECT_EQ(bits_of(g.gradient), bits_of(products.gradient));

                // Sums of some thousand products of either sign, which may cancel: errors in proportion to the largest
                // entry times their number.
                const Numbers Ha = tangent(products.hv, 0, p.nw(), 2);
                const Numbers Hb = tangent(products.hv, 1, p.nw(), 2);
                EXPECT_NEAR(static_cast<double>(dot(a, Hb)),
                            static_cast<double>(dot(b, Ha)),
                            ROUNDINGS * p.nw() * largest(products.hv));
                const Numbers jac = call_Jv(net, p, a, 1).jac, uJ = call_vJ(net, p, u).g;
                EXPECT_NEAR(static_cast<double>(dot(u, jac)),
                            static_cast<double>(dot(uJ, a)),
                            ROUNDINGS * p.nw() * largest(uJ));
            }
        }
    }
}
