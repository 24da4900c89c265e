#include "hpp/problem.h"
#include "support/dual.h"

// What the C++ header returns, against the plain loops of support/plain_network.h and against differences. The numbers are
// of the size of ten at most and come from some hundred operations, hence some thousand roundings.

namespace {

constexpr double TOLERANCE = 5e-13;

class HppValues : public testing::Test {
protected:
    const Problem problem;
    const vemkn::Network net = problem.network();
    const Numbers &w = problem.w, &x = problem.x, &y = problem.y;
    const plain::Network& truth = problem.truth;
};

TEST_F(HppValues, OutputsAreThoseOfThePlainLoops)
{
    const vemkn::Values r = net.compute(w, x);
    expect_close(r.values, truth.outputs(w, x, problem.rows, 3), TOLERANCE);
    EXPECT_TRUE(r.finite);
}

TEST_F(HppValues, ResidualsAreOutputsMinusTargets)
{
    const vemkn::Values r = net.residual(w, x, y);
    expect_close(r.values, truth.residuals(w, x, y, problem.rows, 3), TOLERANCE);
    EXPECT_TRUE(r.finite);
}

TEST_F(HppValues, ObjectiveIsTheMeanOfTheNorms)
{
    const plain::Reals norms = truth.element_norms(w, x, y, problem.rows, 3);
    expect_close(net.objective_each(w, x, y).values, norms, TOLERANCE);
    plain::Real mean = 0;
    for (const plain::Real norm : norms) mean += norm / static_cast<plain::Real>(norms.size());
    EXPECT_NEAR(static_cast<double>(mean), net.objective(w, x, y), TOLERANCE);
}

TEST_F(HppValues, GradientIsThatOfComplexSteps)
{
    const vemkn::Gradient r = net.value_and_gradient(w, x, y);
    EXPECT_NEAR(static_cast<double>(truth.objective(w, x, y, problem.rows, 3)), r.value, TOLERANCE);
    expect_close(r.gradient, truth.gradient(w, x, y, problem.rows, 3), TOLERANCE);
    EXPECT_TRUE(r.finite);
}

// Central differences with step h are off by h^2/6 times a third derivative, below 1e4 here, and by the rounding of the
// objective over h: 1e-15 * 20 / 1e-5.
TEST_F(HppValues, GradientIsTheSlopeOfTheObjective)
{
    const vemkn::Gradient r = net.value_and_gradient(w, x, y);
    constexpr double h = 1e-5;
    for (std::size_t k = 0; k < w.size(); ++k) {
        Numbers up = w, down = w;
        up[k] += h;
        down[k] -= h;
        EXPECT_NEAR(
            (net.objective(up, x, y) - net.objective(down, x, y)) / (2 * h), r.gradient[k], 1e-6)
            << k;
    }
}

TEST_F(HppValues, HessianProductsAreSecondDerivativesInBothOrders)
{
    for (const std::size_t nv : {std::size_t{1}, std::size_t{3}, problem.nw() + 2}) {
        const Numbers v = Random(5).list(problem.nw() * nv);
        for (const vemkn::Order order : ORDERS) {
            const vemkn::HessianProduct r = net.hessian_product(w, v, x, y, order);
            EXPECT_TRUE(r.finite);
            EXPECT_NEAR(
                static_cast<double>(truth.objective(w, x, y, problem.rows, 3)), r.value, TOLERANCE);
            expect_close(r.gradient, truth.gradient(w, x, y, problem.rows, 3), TOLERANCE);
            for (std::size_t d = 0; d < nv; d += 2) {
                const Numbers along = tangent(v, d, nv, order);
                expect_close(tangent(r.products, d, nv, order),
                             plain::hessian_product(
                                 truth, w, x, y, problem.rows, 3, {along.begin(), along.end()}),
                             20 * TOLERANCE);
            }
        }
    }
}

// The weighted gradients of the plain loops, one for each residual, are the rows of the Jacobian.
TEST_F(HppValues, JacobianProductsFromBothSidesAreThoseOfTheWholeMatrix)
{
    std::vector<plain::Reals> jacobian;
    for (std::size_t i = 0; i < problem.results(); ++i) {
        plain::Reals one(problem.results());
        one[i] = 1;
        jacobian.push_back(truth.weighted_gradient(w, x, y, problem.rows, 3, one));
    }

    constexpr std::size_t nv = 3;
    const Numbers v = Random(6).list(problem.nw() * nv);
    for (const vemkn::Order order : ORDERS) {
        const vemkn::JacobianProduct r = net.jacobian_product(w, v, x, y, order);
        EXPECT_TRUE(r.finite);
        expect_close(r.values, truth.element_norms(w, x, y, problem.rows, 3), TOLERANCE);
        for (std::size_t d = 0; d < nv; ++d) {
            const Numbers along = tangent(v, d, nv, order);
            plain::Reals product(problem.results());
            for (std::size_t i = 0; i < product.size(); ++i) {
                for (std::size_t k = 0; k < along.size(); ++k) {
                    product[i] += jacobian[i][k] * static_cast<plain::Real>(along[k]);
                }
            }
            expect_close(tangent(r.products, d, nv, order), product, 20 * TOLERANCE);
        }
    }

    for (const std::size_t k : {1u, 4u}) {
        const Numbers u = Random(7).list(problem.results() * k);
        const vemkn::ProductJacobian r = net.product_jacobian(w, u, x, y);
        EXPECT_TRUE(r.finite);
        expect_close(r.residuals, truth.residuals(w, x, y, problem.rows, 3), TOLERANCE);
        plain::Reals products;
        for (std::size_t block = 0; block < k; ++block) {
            plain::Reals product(problem.nw());
            for (std::size_t i = 0; i < problem.results(); ++i) {
                const auto weight = static_cast<plain::Real>(u[block * problem.results() + i]);
                for (std::size_t p = 0; p < product.size(); ++p) {
                    product[p] += weight * jacobian[i][p];
                }
            }
            products.insert(products.end(), product.begin(), product.end());
        }
        expect_close(r.products, products, 20 * TOLERANCE);
    }
}

TEST(HppDescription, GivesTheTextThatItStandsFor)
{
    const vemkn::Description d{
        .numin = 3, .numout = 2, .sizes = {3, 5, 4}, .activation = "atan", .norm = "sum"};
    EXPECT_EQ("3 2 3 1 32 3 5 4 atan sum", d.text());
    for (const char* const activation : {"softplus", "relu", "id"}) {
        const vemkn::Description one{.sizes = {1, 2}, .activation = activation, .nmult = 3};
        EXPECT_EQ(std::string("1 1 2 3 32 1 2 ") + activation + " sum_log_dnorm_fat", one.text());
    }
}

TEST(HppDescription, RefusesWordsThatTheLibraryDoesNotList)
{
    const auto complaint = [](const vemkn::Description& d) -> std::string {
        try {
            return d.text();
        } catch (const std::invalid_argument& error) {
            return error.what();
        }
    };
    EXPECT_EQ(
        "vemkn: activation \"tanh\" is none of softplus, softmax, softplus_shifted, atan, relu, id",
        complaint({.sizes = {1, 2}, .activation = "tanh"}));
    EXPECT_EQ("vemkn: norm \"l2\" is none of sum_log_dnorm_fat, sum",
              complaint({.sizes = {1, 2}, .norm = "l2"}));
}

TEST(HppDescription, EveryActivationAndNormIsTheOneMeant)
{
    const Numbers at = {0.3, -0.4, 0.8, 0.5, -0.2, 0.1, 0.7}, in = {-0.6, 0.9},
                  target = {0.2, -3.5};
    for (const char* const activation : {"softplus", "atan", "relu", "id"}) {
        for (const char* const norm : {"sum_log_dnorm_fat", "sum"}) {
            const vemkn::Network one({.sizes = {1, 2}, .activation = activation, .norm = norm});
            const plain::Network same{.sizes = {1, 2}, .activation = activation, .norm = norm};
            ASSERT_EQ(7u, one.numel());
            expect_close(one.objective_each(at, in, target).values,
                         same.element_norms(at, in, target, 2, 1),
                         TOLERANCE,
                         same.text());
        }
    }
}

}  // namespace
