#include "jacobian/weighted_products.h"

namespace {

// The i-th n numbers of all.
Numbers part_of(const Numbers& all, std::size_t i, std::size_t n)
{
    const auto first = all.begin() + static_cast<std::ptrdiff_t>(i * n);
    return Numbers(first, first + static_cast<std::ptrdiff_t>(n));
}

// k sums of the rows of J with the weights u.
plain::Reals weighted_rows(const plain::Reals& J, const Numbers& u, std::size_t k)
{
    const std::size_t elements = u.size() / k, nw = J.size() / elements;
    plain::Reals sums(k * nw);
    for (std::size_t i = 0; i < k; ++i) {
        for (std::size_t e = 0; e < elements; ++e) {
            for (std::size_t j = 0; j < nw; ++j) {
                sums[i * nw + j] += u[i * elements + e] * J[e * nw + j];
            }
        }
    }
    return sums;
}

}  // namespace

TEST(VJVec, GivesAProductForEveryCotangentRowByRow)
{
    for (const char* norm : NORMS) {
        const Problem p = problem("atan", norm);
        const Network net(p.shape.text());
        for (const unsigned k : {1u, 2u, 5u, 17u}) {
            for (const unsigned threads : {1u, 2u, 3u, 8u}) {
                SCOPED_TRACE(testing::Message() << k << " cotangents, " << threads << " threads");
                // The rows are not split, whatever the batch.
                ASSERT_EQ(0, vemk_setpar(net, threads, 2));
                Random random(12);
                const Numbers u = random.list(k * p.elements());
                const TransposedProducts products = call_vJ_vec(net, p, u, k);
                expect_close(products.r, plain_residuals(p), TOLERANCE);
                for (std::size_t i = 0; i < k; ++i) {
                    expect_close(part_of(products.g, i, p.nw()),
                                 plain_product(p, part_of(u, i, p.elements())),
                                 TOLERANCE,
                                 "cotangent " + std::to_string(i) + ", weight");
                }
            }
        }
    }
}

TEST(VJVec, DependsOnNeitherTheOtherCotangentsNorTheThreads)
{
    const Problem p = problem();
    const Network net(p.shape.text());
    Random random(13);
    const unsigned k = 5;
    const Numbers u = random.list(k * p.elements());
    const Numbers expected = call_vJ_vec(net, p, u, k).g;
    for (const unsigned threads : {1u, 2u, 3u, 8u}) {
        ASSERT_EQ(0, vemk_setpar(net, threads, 1));
        EXPECT_EQ(bits_of(expected), bits_of(call_vJ_vec(net, p, u, k).g));
    }
    for (std::size_t i = 0; i < k; ++i) {
        const Numbers alone = call_vJ_vec(net, p, part_of(u, i, p.elements()), 1).g;
        EXPECT_EQ(bits_of(part_of(expected, i, p.nw())), bits_of(alone));
    }
}

// How many cotangents are swept side by side depends on the widths, on their number and on the threads; rows go through in
// several blocks. One Jacobian gives what all of them have to be.
TEST(VJVec, GivesEveryProductInGroupsOfAnySize)
{
    struct Case {
        std::vector<unsigned> sizes;
        unsigned nmult, numout;
        const char *activation, *norm;
    };

    const Case cases[] = {{{2, 5}, 1, 1, "softplus", "sum_log_dnorm_fat"},
                          {{2, 9, 7}, 1, 2, "atan", "sum_log_dnorm_fat"},
                          {{2, 16, 3}, 1, 1, "relu", "sum_log_dnorm_fat"},
                          {{2, 24}, 1, 3, "relu", "sum"},
                          {{2, 40}, 1, 2, "softplus", "sum"},
                          {{2, 70}, 1, 1, "id", "sum_log_dnorm_fat"},
                          {{3, 4, 3}, 2, 2, "atan", "sum_log_dnorm_fat"},
                          {{3, 20, 3}, 3, 1, "softplus", "sum"},
                          // Eight times the outputs of four passes are 2 KB: rows with gaps.
                          {{8, 8, 8}, 4, 1, "relu", "sum"}};
    for (const Case& c : cases) {
        Random random(15);
        Problem p;
        p.shape = {.numin = 2,
                   .numout = c.numout,
                   .nmult = c.nmult,
                   .sizes = c.sizes,
                   .activation = c.activation,
                   .norm = c.norm};
        p.nrows = 130;
        p.xcols = 2;
        p.fill(random);
        const Network net(p.shape.text());
        const plain::Reals J = plain_jacobian(p);
        for (const unsigned k : {1u, 3u, 8u, 13u, 17u}) {
            const Numbers u = random.list(k * p.elements());
            const plain::Reals products = weighted_rows(J, u, k);
            for (const unsigned threads : {1u, 2u, 5u}) {
                SCOPED_TRACE(testing::Message() << described(p) << ", " << k << " cotangents, "
                                                << threads << " threads");
                ASSERT_EQ(0, vemk_setpar(net, threads, 32));
                // Sums over up to a hundred times the elements of the other tests.
                expect_close(call_vJ_vec(net, p, u, k).g, products, 10 * TOLERANCE);
            }
        }
    }
}

TEST(VJVec, WithOneCotangentIsVJ)
{
    const Problem p = problem();
    const Network net(p.shape.text());
    Random random(14);
    const Numbers u = random.list(p.elements());
    for (const int batch : {2, 8}) {
        vemk_setbatch(net, batch);
        const TransposedProducts one = call_vJ(net, p, u), vec = call_vJ_vec(net, p, u, 1);
        // Up to the order of the sums over slices.
        expect_close(vec.g, one.g, TOLERANCE);
        expect_close(vec.r, one.r, TOLERANCE);
    }
}

TEST(VJVec, OfUnitCotangentsIsTheFullJacobian)
{
    const Problem p = problem("softplus", "sum");
    const Network net(p.shape.text());
    vemk_setpar(net, 2, 32);
    const auto k = static_cast<unsigned>(p.elements());
    expect_close(call_vJ_vec(net, p, identity(k), k).g, plain_jacobian(p), TOLERANCE);
}

TEST(VJVec, OfNoCotangentsGivesTheResidualsOnly)
{
    const Problem p = problem();
    const Network net(p.shape.text());
    Output r(p.elements()), g(p.nw());
    for (const unsigned threads : {1u, 3u}) {
        ASSERT_EQ(0, vemk_setpar(net, threads, 2));
        ASSERT_EQ(0,
                  vemk_vJ_vec(net,
                              p.w.data(),
                              p.nw(),
                              nullptr,
                              0,
                              p.x.data(),
                              p.y.data(),
                              p.nrows,
                              p.xcols,
                              p.ycols(),
                              r.data(),
                              g.data()));
        expect_close(r.values(), plain_residuals(p), TOLERANCE);
        EXPECT_TRUE(g.untouched());
    }
}

TEST(VJVec, OfNoRowsGivesZerosForEveryCotangent)
{
    Problem p = problem();
    p.nrows = 0;
    p.x.clear();
    p.y.clear();
    const Network net(p.shape.text());
    EXPECT_EQ(Numbers(3 * std::size_t{p.nw()}), call_vJ_vec(net, p, {}, 3).g);
}

namespace {

// The affine 1-1-1 network of four weights, sums as its norm.
Problem affine(const Numbers& w, const Numbers& x)
{
    Problem p;
    p.shape = {.numin = 1, .numout = 1, .sizes = {1, 1}, .activation = "id", .norm = "sum"};
    p.nrows = static_cast<unsigned>(x.size());
    p.xcols = 1;
    p.w = w;
    p.x = x;
    p.y = Numbers(x.size());
    return p;
}

}  // namespace

// 1 + 1e16 loses the 1; so only the order from the last row of all to the first gives zero.
TEST(VJVec, SumsColumnsFromTheLastRowOfTheBatchToTheFirst)
{
    const unsigned rows = 65;
    const Problem p = affine({0.0, 1.0, 0.0, 1.0}, Numbers(rows, 1.0));
    Numbers u(rows);
    u[0] = -1e16, u[63] = 1e16, u[64] = 1.0;
    const Network net(p.shape.text());
    vemk_setbatch(net, rows);
    EXPECT_EQ(0.0, call_vJ(net, p, u).g[2]);
    for (const unsigned threads : {1u, 2u, 5u}) {
        for (const int batch : {1, 32, 65}) {
            vemk_setpar(net, threads, batch);
            EXPECT_EQ(0.0, call_vJ_vec(net, p, u, 1).g[2]) << threads << ", " << batch;
        }
    }
}

TEST(VJVec, AddsNothingToTheGradientOfOneChunk)
{
    const Problem p = affine({0.0, 1.0, 0.0, 1.0}, {-1.0});
    const Network net(p.shape.text());
    const Numbers g = call_vJ_vec(net, p, {-0.0}, 1).g;
    EXPECT_TRUE(std::signbit(
        g[2]));  // the bias of the output: what is added to zero would have lost its sign
    EXPECT_EQ(bits_of(call_vJ(net, p, {-0.0}).g), bits_of(g));
}

// Cotangents go in groups that depend on their number and the shape alone.
TEST(VJVec, HasTheSameBitsOnAnyNumberOfThreadsWithAnyBatch)
{
    Problem p = problem("softplus", "sum_log_dnorm_fat");
    Random random(15);
    p.nrows = 3000;  // enough work for a team
    p.fill(random);
    const Network net(p.shape.text());
    for (const unsigned k : {1u, 3u, 8u, 21u}) {
        const Numbers u = random.list(k * p.elements());
        vemk_setpar(net, 1, 32);
        const auto expected = bits_of(call_vJ_vec(net, p, u, k).g);
        for (const unsigned threads : {2u, 3u, 64u, 1000u}) {
            for (const int batch : {32, 1000}) {
                vemk_setpar(net, threads, batch);
                EXPECT_EQ(expected, bits_of(call_vJ_vec(net, p, u, k).g)) << k << ", " << threads;
            }
        }
    }
}
