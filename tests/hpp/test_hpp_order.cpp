#include <atomic>
#include <memory>
#include <thread>

#include "hpp/problem.h"

// The storage order of tangents belongs to the call, though the library keeps it for the process.

namespace {

// Leaves the process as it found it.
class HppOrder : public testing::Test {
protected:
    ~HppOrder() override { vemk_major(nullptr, 0); }

    Problem problem;
    vemkn::Network net = problem.network();
    Numbers v = Random(2).list(problem.nw() * 2);
};

TEST_F(HppOrder, IsThatOfTheCallAndPutBackAfterwards)
{
    const Numbers &w = problem.w, &x = problem.x, &y = problem.y;
    for (const vemkn::Order order : ORDERS) {
        vemk_major(nullptr, 0);
        const Numbers hessian = net.hessian_product(w, v, x, y, order).products;
        const Numbers jacobian = net.jacobian_product(w, v, x, y, order).products;
        EXPECT_EQ(0, vemkn_rowmajor);
        vemk_major(nullptr, 7);
        EXPECT_EQ(bits_of(hessian), bits_of(net.hessian_product(w, v, x, y, order).products));
        EXPECT_EQ(7, vemkn_rowmajor);
        EXPECT_EQ(bits_of(jacobian), bits_of(net.jacobian_product(w, v, x, y, order).products));
        EXPECT_EQ(7, vemkn_rowmajor);
    }
}

TEST_F(HppOrder, IsPutBackAfterARefusedShape)
{
    vemk_major(nullptr, 1);
    v.pop_back();
    EXPECT_THROW(net.hessian_product(problem.w, v, problem.x, problem.y), std::invalid_argument);
    EXPECT_THROW(net.jacobian_product(problem.w, v, problem.x, problem.y), std::invalid_argument);
    EXPECT_EQ(1, vemkn_rowmajor);
}

// What overlapping calls do, without leaving it to chance whether they overlap.
TEST_F(HppOrder, IsPutBackByTheLastOfOverlappingCalls)
{
    vemk_major(nullptr, 7);
    auto first = std::make_unique<vemkn::detail::Interleaved>();
    auto second = std::make_unique<vemkn::detail::Interleaved>();
    EXPECT_EQ(0, vemkn_rowmajor);
    first.reset();
    EXPECT_EQ(0, vemkn_rowmajor) << "the second is still under way";
    second.reset();
    EXPECT_EQ(7, vemkn_rowmajor);
}

TEST_F(HppOrder, CallsOfSeveralThreadsMayDifferInIt)
{
    vemk_major(nullptr, 1);
    const Numbers &w = problem.w, &x = problem.x, &y = problem.y;
    std::vector<Numbers> expected;
    for (const vemkn::Order order : ORDERS) {
        expected.push_back(net.hessian_product(w, v, x, y, order).products);
    }
    EXPECT_NE(bits_of(expected[0]), bits_of(expected[1]));
    std::atomic<int> different = 0;
    std::vector<std::thread> threads;
    for (unsigned t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (int round = 0; round < 50; ++round) {
                const Numbers products = net.hessian_product(w, v, x, y, ORDERS[t % 2]).products;
                if (bits_of(products) != bits_of(expected[t % 2])) ++different;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(0, different);
    EXPECT_EQ(1, vemkn_rowmajor);
}

}  // namespace
