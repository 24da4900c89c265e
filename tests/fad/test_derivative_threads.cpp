#include <atomic>
#include <barrier>
#include <functional>
#include <thread>

#include "jacobian/derivative_calls.h"

// Derivative calls in several host threads at once, and teams of several threads within one call.

namespace {

// 4-7-5-2
Problem problem(const char* activation, const char* norm, unsigned nrows)
{
    Random random(nrows);
    Problem p;
    p.shape = {.numin = 4, .numout = 2, .sizes = {4, 7, 5}, .activation = activation, .norm = norm};
    p.nrows = nrows;
    p.xcols = 4;
    p.fill(random);
    return p;
}

// All results of one call, one after the other.
using Work = std::function<Numbers()>;

Numbers joined(Numbers a, const Numbers& b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

Work hv_work(VEMKNInfo* net, const Problem& p, unsigned nv)
{
    return [=, &p] {
        Random random(nv);
        const HessianProducts products = call_Hv(net, p, random.list(std::size_t{p.nw()} * nv), nv);
        return joined(joined({products.value}, products.gradient), products.hv);
    };
}

Work jv_work(VEMKNInfo* net, const Problem& p, unsigned nv)
{
    return [=, &p] {
        Random random(nv);
        const JacobianProducts products =
            call_Jv(net, p, random.list(std::size_t{p.nw()} * nv), nv);
        return joined(products.f, products.jac);
    };
}

Work vj_work(VEMKNInfo* net, const Problem& p)
{
    return [=, &p] {
        Random random(1);
        const TransposedProducts products = call_vJ(net, p, random.list(p.elements()));
        return joined(products.r, products.g);
    };
}

Work vj_vec_work(VEMKNInfo* net, const Problem& p, unsigned k)
{
    return [=, &p] {
        Random random(k);
        const TransposedProducts products = call_vJ_vec(net, p, random.list(k * p.elements()), k);
        return joined(products.r, products.g);
    };
}

Work g_work(VEMKNInfo* net, const Problem& p)
{
    return [=, &p] {
        const Gradient g = call_g(net, p);
        return joined({g.value}, g.gradient);
    };
}

// Every piece of work alone gives the truth; then each of four threads goes through all of them, from another one on,
// so that different ones meet.
void expect_the_same_side_by_side(const std::vector<Work>& work, int rounds)
{
    std::vector<std::vector<std::uint64_t>> truth;
    for (const Work& one : work) truth.push_back(bits_of(one()));

    constexpr std::size_t THREADS = 4;
    std::atomic<int> different{0};
    std::barrier start(THREADS);
    std::vector<std::thread> threads;
    for (std::size_t t = 0; t < THREADS; ++t) {
        threads.emplace_back([&, t] {
            start.arrive_and_wait();
            for (std::size_t i = 0; i < work.size() * static_cast<std::size_t>(rounds); ++i) {
                const std::size_t at = (i + t * work.size() / THREADS) % work.size();
                if (bits_of(work[at]()) != truth[at]) ++different;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(0, different.load());
}

}  // namespace

TEST(DerivativeThreads, CallsWithDifferentNumbersOfTangentsGiveWhatTheyGiveAlone)
{
    const Problem p = problem("softplus", "sum_log_dnorm_fat", 13);
    const Problem q = problem("atan", "sum", 6);
    const Network a(p.shape.text()), b(q.shape.text());
    vemk_setpar(a, 2, 4);
    expect_the_same_side_by_side({hv_work(a, p, 1),
                                  jv_work(b, q, 5),
                                  hv_work(b, q, 3),
                                  vj_work(a, p),
                                  jv_work(a, p, 2),
                                  hv_work(a, p, 0),
                                  g_work(a, p),
                                  hv_work(b, q, 8),
                                  vj_vec_work(a, p, 3),
                                  jv_work(b, q, 1)},
                                 50);
}

TEST(DerivativeThreads, CallsWithTheSameNumberOfTangentsMayShareAHandle)
{
    const Problem p = problem("softplus", "sum_log_dnorm_fat", 13);
    const Network net(p.shape.text());
    expect_the_same_side_by_side({hv_work(net, p, 2), jv_work(net, p, 2)}, 30);
}

TEST(DerivativeThreads, HandlesMayBeCreatedBesideDerivativeCalls)
{
    const Problem p = problem("atan", "sum", 13);
    const Network net(p.shape.text());
    const std::string text = p.shape.text();
    const Work creation = [&] {
        // A creation in between would change the number of tangents under a running call.
        const Network other(text);
        return Numbers{static_cast<double>(vemk_numel(other))};
    };
    expect_the_same_side_by_side({hv_work(net, p, 3),
                                  creation,
                                  jv_work(net, p, 4),
                                  creation,
                                  hv_work(net, p, 4),
                                  creation,
                                  jv_work(net, p, 2)},
                                 50);
}

TEST(DerivativeThreads, TheSameThreadsAndSlicesGiveTheSameBitsEveryTime)
{
    const Problem p = problem("softplus", "sum_log_dnorm_fat", 40);
    for (const unsigned threads : {1u, 2u, 3u, 8u}) {
        SCOPED_TRACE(testing::Message() << threads << " threads");
        const Network net(p.shape.text());
        ASSERT_EQ(0, vemk_setpar(net, threads, 3));
        for (const Work& work :
             {hv_work(net, p, 2), jv_work(net, p, 2), vj_work(net, p), vj_vec_work(net, p, 9)}) {
            const auto first = bits_of(work());
            for (int time = 0; time < 20; ++time) ASSERT_EQ(first, bits_of(work())) << time;
        }
    }
}

TEST(DerivativeThreads, ValuesThatAreNotSummedDoNotDependOnTheThreads)
{
    // Jv, and the residuals, are written slice by slice: only the slices have a say in the last bits. The products of vJ_vec
    // are swept side by side, as many as a thread has of them: these may round differently.
    const Problem p = problem("softplus", "sum_log_dnorm_fat", 40);
    const Network net(p.shape.text());
    ASSERT_EQ(0, vemk_setpar(net, 1, 3));
    const auto jv = bits_of(jv_work(net, p, 3)());
    const Numbers u(5 * p.elements(), 0.5);
    const auto residuals = bits_of(call_vJ_vec(net, p, u, 5).r);
    for (const unsigned threads : {2u, 3u, 8u}) {
        ASSERT_EQ(0, vemk_setpar(net, threads, 3));
        EXPECT_EQ(jv, bits_of(jv_work(net, p, 3)()));
        EXPECT_EQ(residuals, bits_of(call_vJ_vec(net, p, u, 5).r));
    }
}
