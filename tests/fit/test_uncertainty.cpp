// Standard errors and intervals, against the sandwich of a linear model formed here, and against draws.
#include <gtest/gtest.h>

#include <Eigen/Dense>
#include <cmath>

#include "fit/loss.h"
#include "fit/random.h"
#include "fit/robust_model.h"
#include "fit/student.h"
#include "support/size.h"

using namespace vemknfit;

namespace {

// y = 1 + 2 a - b with noise of 0.3, every tenth row 20 higher.
struct Line {
    Matrix x;
    Vector y;

    Line(Eigen::Index rows, std::uint64_t seed) : x(rows, 2), y(rows)
    {
        Random random(seed, 4);
        for (Eigen::Index r = 0; r < rows; ++r) {
            x(r, 0) = random.normal();
            x(r, 1) = 3.0 * random.uniform();
            y[r] =
                1.0 + 2.0 * x(r, 0) - x(r, 1) + 0.3 * random.normal() + (r % 10 == 3 ? 20.0 : 0.0);
        }
    }
};

std::vector<ColumnRule> straight(std::size_t columns)
{
    return std::vector<ColumnRule>(columns, {.name = "x", .spread = 1.0});
}

Model linear_model(const Line& data)
{
    return robust_model(
        data.x, data.y, straight(2), {.hidden = {1}, .activation = "id", .decay = 0.0});
}

// Of an M-estimate of a linear model at its own core: A^-1 B A^-1 n / (n - p), in units of y.
struct Sandwich {
    Eigen::MatrixXd covariance;

    Sandwich(const Line& data, const Vector& fitted, double core)
    {
        const Eigen::Index rows = data.y.size(), p = 3;
        Eigen::MatrixXd design(rows, p);
        design << Eigen::VectorXd::Ones(rows), data.x;
        const double unit = 3.0 * core;
        Eigen::MatrixXd curvature = Eigen::MatrixXd::Zero(p, p), spread = curvature;
        for (Eigen::Index r = 0; r < rows; ++r) {
            const double u = (fitted[r] - data.y[r]) / unit, width = 0.0004785973257525766;
            const double square = u * u + width * width;
            const bool inside = std::abs(u) < 2.0;
            const double slope = inside ? 9.0 * u : 2.0 * u / square;
            const double second = inside ? 9.0 : 2.0 / square - 4.0 * u * u / (square * square);
            const Eigen::VectorXd z = design.row(r).transpose();
            curvature += second * z * z.transpose();
            spread += slope * slope * z * z.transpose();
        }
        const Eigen::MatrixXd inverse = curvature.inverse();
        covariance = unit * unit * static_cast<double>(rows) / static_cast<double>(rows - p) *
                     inverse * spread * inverse;
    }

    double error(double a, double b) const
    {
        const Eigen::Vector3d z(1.0, a, b);
        return std::sqrt(z.dot(covariance * z));
    }
};

}  // namespace

TEST(StudentQuantile, AgreesWithTables)
{
    EXPECT_NEAR(12.706204736174698, student_quantile(0.95, 1.0), 1e-9);
    EXPECT_NEAR(2.2281388519649385, student_quantile(0.95, 10.0), 1e-9);
    EXPECT_NEAR(2.7764451051977987, student_quantile(0.95, 4.0), 1e-9);
    EXPECT_NEAR(2.6259, student_quantile(0.99, 100.0), 1e-4);
    EXPECT_NEAR(1.9599639845400545, student_quantile(0.95, 1e12), 1e-5);
    EXPECT_NEAR(0.5773502691896257, student_quantile(1.0 / 3.0, 1.0), 1e-12);
}

TEST(Uncertainty, IsTheSandwichOfALinearModel)
{
    for (const Eigen::Index rows : {30, 1500}) {
        const Line data(rows, 5);
        const Model model = linear_model(data);
        ASSERT_NE(0, model.uncertainty->covariance.size()) << model.uncertainty->why_none;
        const vemkn::Network network = model.network();
        const Vector fitted = model.predict(network, data.x);
        const Sandwich expected(data, fitted, model.targets.front().core);
        const Vector errors = model.errors(network, data.x);
        for (Eigen::Index r = 0; r < rows; ++r) {
            const double error = expected.error(data.x(r, 0), data.x(r, 1));
            EXPECT_NEAR(error, errors[r], 1e-5 * error) << r;
        }
        // Outliers curve A downwards a little.
        EXPECT_NEAR(3.0, model.uncertainty->parameters, 1e-3);
        EXPECT_NEAR(static_cast<double>(rows) - 3.0, model.uncertainty->freedom, 1e-3);
    }
}

// A penalty takes parameters away, and the more the larger it is.
TEST(Uncertainty, CountsThePenaltyOff)
{
    const Line data(200, 6);
    double before = 4.0;  // weights less the direction that moves no curve
    for (const double decay : {1.0, 30.0, 1000.0}) {
        const Model model = robust_model(
            data.x, data.y, straight(2), {.hidden = {1}, .activation = "id", .decay = decay});
        ASSERT_NE(0, model.uncertainty->covariance.size()) << model.uncertainty->why_none;
        EXPECT_LT(model.uncertainty->parameters, before);
        EXPECT_GT(model.uncertainty->parameters, 0.5);
        before = model.uncertainty->parameters;
    }
}

// By refitting with targets that are moved one at a time.
TEST(Uncertainty, CountsByHowMuchFittedValuesMoveWithTheirTargets)
{
    constexpr Eigen::Index ROWS = 40;
    constexpr double CORE = 0.3, STEP = 0.003;
    Random random(12, 4);
    Matrix x(ROWS, 1);
    Vector y(ROWS);
    for (Eigen::Index r = 0; r < ROWS; ++r) {
        x(r, 0) = 4.0 * random.uniform() - 2.0;
        y[r] = 2.0 * x(r, 0) + CORE * random.normal();
    }
    for (const double decay : {1.0, 10.0, 30.0}) {
        const RobustOptions options{.hidden = {2}, .core = CORE, .decay = decay, .starts = 1};
        const auto fit = [&](const Vector& targets) {
            return robust_model(x, targets, straight(1), options);
        };
        const Model model = fit(y);
        ASSERT_NE(0, model.uncertainty->covariance.size()) << model.uncertainty->why_none;
        double moves = 0.0;
        for (Eigen::Index r = 0; r < ROWS; ++r) {
            Vector above = y, below = y;
            above[r] += STEP;
            below[r] -= STEP;
            const Model up = fit(above), down = fit(below);
            const Matrix row = x.row(r);
            moves += (up.predict(up.network(), row)(0) - down.predict(down.network(), row)(0)) /
                     (2.0 * STEP);
        }
        EXPECT_NEAR(moves, model.uncertainty->parameters, 0.02 * moves) << decay;
        EXPECT_GT(moves, 1.5);
    }
}

TEST(Uncertainty, SaysWhyThereIsNone)
{
    const Line data(40, 7);
    const Model wide =
        robust_model(data.x, data.y, straight(2), {.hidden = {130}, .decay = 1.0, .starts = 1});
    EXPECT_EQ(0, wide.uncertainty->covariance.size());
    EXPECT_NE(std::string::npos, wide.uncertainty->why_none.find("more than 500 weights"));
    EXPECT_EQ(wide.uncertainty->why_none, wide.summary->notes.back());
}

// Ninety draws of a curve with outliers: the band of 95 % holds the curve, the interval a new row, as often as 90 draws can tell.
TEST(Uncertainty, CoversTheCurveAndNewRows)
{
    const int draws = unless_sanitized(90);
    constexpr Eigen::Index ROWS = 150, POINTS = 10;
    const auto truth = [](double x) { return std::sin(2.0 * x); };
    double band = 0.0, interval = 0.0, all = 0.0;
    for (int draw = 0; draw < draws; ++draw) {
        Random random(static_cast<std::uint64_t>(draw), 3);
        Matrix x(ROWS, 1);
        Vector y(ROWS);
        for (Eigen::Index r = 0; r < ROWS; ++r) {
            x(r, 0) = 4.0 * random.uniform() - 2.0;
            y[r] = truth(x(r, 0)) + 0.1 * random.normal() + (random.uniform() < 0.1 ? 5.0 : 0.0);
        }
        const Model model = robust_model(
            x, y, {{.name = "x", .bounded = true}}, {.hidden = {4}, .decay = 0.1, .starts = 1});
        if (model.uncertainty->covariance.size() == 0) continue;
        const vemkn::Network network = model.network();
        Matrix points(POINTS, 1);
        for (double& point : points.reshaped()) point = 3.6 * random.uniform() - 1.8;
        const Vector curve = model.predict(network, points), errors = model.errors(network, points);
        const double t = student_quantile(0.95, model.uncertainty->freedom);
        for (Eigen::Index p = 0; p < POINTS; ++p) {
            const double right = truth(points(p, 0)), row = right + 0.1 * random.normal();
            all += 1.0;
            band += std::abs(curve[p] - right) <= t * errors[p] ? 1.0 : 0.0;
            const double reach = t * std::hypot(errors[p], model.targets.front().core);
            interval += std::abs(curve[p] - row) <= reach ? 1.0 : 0.0;
        }
    }
    EXPECT_GT(all, 0.9 * draws * static_cast<double>(POINTS));
    if (draws < 90) return;  // too few to tell
    EXPECT_GT(band / all, 0.88);
    EXPECT_LT(band / all, 0.99);
    EXPECT_GT(interval / all, 0.92);
    EXPECT_LT(interval / all, 0.98);
}
