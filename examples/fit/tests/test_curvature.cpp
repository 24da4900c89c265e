// Laplace's approximation against what is known in closed form.
#include <gtest/gtest.h>

#include <Eigen/LU>
#include <cmath>

#include "../../common/random.h"
#include "fit.h"
#include "uncertainty.h"

namespace {

using fit::Batch;
using fit::Matrix;
using fit::Network;
using fit::Shape;
using fit::Vector;

TEST(Laplace, InvertsTheInformation)
{
    const Eigen::MatrixXd information{{5.0, 1.0}, {1.0, 4.0}};
    const fit::Laplace laplace(information);
    EXPECT_EQ(laplace.raised(), 0);
    const Matrix gradients{{1.0, 0.0}, {1.0, -2.0}};
    const Vector errors = laplace.standard_errors(gradients);
    const Eigen::MatrixXd covariance = information.inverse();
    for (Eigen::Index i = 0; i < 2; ++i)
        EXPECT_NEAR(
            errors[i], std::sqrt(gradients.row(i).dot(gradients.row(i) * covariance)), 1e-12);
}

TEST(Laplace, RaisesWhatIsNotDetermined)
{
    const Eigen::Vector3d diagonal{100.0, 1e-9, -3.0};
    const fit::Laplace laplace(diagonal.asDiagonal().toDenseMatrix());
    EXPECT_EQ(laplace.raised(), 2);
    EXPECT_EQ(laplace.negative(), 1);
    const Vector errors = laplace.standard_errors(Matrix::Identity(3, 3));
    EXPECT_NEAR(errors[0], 0.1, 1e-12);
    EXPECT_NEAR(errors[1], 1.0, 1e-12);
    EXPECT_NEAR(errors[2], 1.0, 1e-12);
}

/* With the activation "id" and the inner weights held, a network is a straight line in its output
 * weights; a bias alone estimates a mean, whose standard error is the scatter over the root of n. */
TEST(Laplace, GivesAMeanItsStandardError)
{
    const Shape shape{.inputs = 1, .outputs = 1, .hidden = {1}, .activation = "id"};
    const Eigen::Index rows = 400;
    const fit::Guard guard(shape, Vector::Zero(1));
    examples::Random random(9);
    Batch batch{Matrix::Zero(rows, 1), Matrix(rows, 1)};
    for (Eigen::Index i = 0; i < rows; ++i) batch.y(i, 0) = random.normal() / 3.0;
    batch.y.array() -= batch.y.mean();
    const Vector w = Vector::Zero(4);  // the output weight 0: nothing but the output bias counts

    for (const bool squares : {false, true}) {
        const Network network(shape, squares ? "sum" : "sum_log_dnorm_fat", {});
        const auto method = squares ? fit::Method::gauss_newton : fit::Method::newton;
        const auto objective = fit::make_objective(method, network, batch, guard);
        const Eigen::MatrixXd found = fit::information(*objective, w, squares);
        const double scatter =
            squares ? std::sqrt(batch.y.squaredNorm() / (static_cast<double>(rows) - 4.0))
                    : 1.0 / 3.0;
        EXPECT_NEAR(1.0 / std::sqrt(found(2, 2)), scatter / 20.0, 1e-9) << squares;

        const Network plain(shape, "sum", {});
        const Matrix errors =
            fit::prediction_errors(fit::Laplace(found), plain, w, Matrix::Zero(3, 1));
        EXPECT_NEAR(errors(2, 0), scatter / 20.0, 1e-9) << squares;
    }
}

}  // namespace
