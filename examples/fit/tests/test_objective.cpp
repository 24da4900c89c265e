// What an objective gives where the library cannot give a number.
#include <gtest/gtest.h>

#include <cmath>

#include "fit.h"

namespace {

using fit::Batch;
using fit::Matrix;
using fit::Vector;

const fit::Shape shape{.inputs = 1, .outputs = 1, .hidden = {1}, .activation = "id"};

/* The guard knows inputs around zero, so it lets weights pass that overflow with these. */
TEST(Objective, IsInfiniteWhereTheLibraryOverflows)
{
    const fit::Guard guard(shape, Vector::Zero(1));
    const Batch batch{Matrix::Constant(3, 1, 1e200), Matrix::Zero(3, 1)};
    const Vector w = Vector::Constant(4, 100.0);
    ASSERT_TRUE(guard.safe(w));
    for (const bool squares : {false, true}) {
        const fit::Network network(shape, squares ? "sum" : "sum_log_dnorm_fat", {});
        const auto method = squares ? fit::Method::gauss_newton : fit::Method::newton;
        const auto objective = fit::make_objective(method, network, batch, guard);
        EXPECT_TRUE(std::isinf(objective->value(w))) << squares;
        EXPECT_EQ(1, objective->counts.refused) << squares;
        EXPECT_TRUE(std::isfinite(objective->value(Vector::Zero(4)))) << squares;
    }
}

TEST(Network, HandsOverNumbersThatAreNotFinite)
{
    const fit::Network network(shape, "sum", {});
    const Vector w = Vector::Constant(4, 1e200);
    EXPECT_FALSE(network.outputs(w, Matrix::Constant(3, 1, 1e200)).allFinite());
}

}  // namespace
