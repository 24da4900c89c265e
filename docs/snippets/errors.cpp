#include <Eigen/Dense>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>

#include <vemkn.h>

using Eigen::VectorXd;
using Matrix = Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;

constexpr unsigned n = 400, nw = 4;

static VEMKNInfo* network(const std::string& text) { return initVEMKNet(text.data(), static_cast<int>(text.size())); }

// guide:
// The Hessian of the mean objective, from products with the unit vectors: symmetric, so the order does not matter.
static Matrix hessian(VEMKNInfo* net, const VectorXd& w, const VectorXd& x, const VectorXd& y) {
    const Matrix units = Matrix::Identity(nw, nw);
    Matrix H(nw, nw);
    const int said =
        vemk_Hv(net, w.data(), nw, units.data(), nw, x.data(), y.data(), n, 1, 1, nullptr, nullptr, H.data());
    if (said != 0) std::exit(1);
    return H;
}
// :guide

int main() {
    VEMKNInfo* net = network("1 1 2 1 32 1 1 atan sum_log_dnorm_fat");
    VEMKNInfo* plain = network("1 1 2 1 32 1 1 atan sum");
    const VectorXd truth = VectorXd{{0.5, 1.5, 0.2, 0.8}};
    const VectorXd x = VectorXd::LinSpaced(n, -2, 2);
    VectorXd outputs(n), own(n), gradient(nw);
    vemk_compute(net, truth.data(), nw, x.data(), n, 1, 0, outputs.data());

    // Many data sets with the scatter that the likelihood assumes, each fitted by scoring from the truth.
    constexpr int sets = 500;
    std::mt19937_64 generator(1);
    std::normal_distribution<double> scatter(0.0, 1.0 / 3);
    Matrix fits(sets, nw), predictions(sets, 1);
    for (int s = 0; s < sets; ++s) {
        const VectorXd y = outputs.unaryExpr([&](double o) { return o + scatter(generator); });
        VectorXd w = truth;
        for (int step = 0; step < 100; ++step) {
            // With the network's own outputs for targets the residuals are 0 and the curvature is never negative.
            vemk_compute(net, w.data(), nw, x.data(), n, 1, 0, own.data());
            const Matrix H = hessian(net, w, x, own);
            double value;
            vemk_g(net, w.data(), nw, x.data(), y.data(), n, 1, 1, &value, gradient.data());
            if (gradient.norm() < 1e-9) break;
            w -= H.ldlt().solve(gradient);
        }
        if (gradient.norm() > 1e-8) return std::printf("no optimum\n"), 1;
        fits.row(s) = w;
        vemk_compute(net, w.data(), nw, x.data() + 100, 1, 1, 0, predictions.data() + s);
    }
    const auto spread = [](const auto& column) {
        return std::sqrt((column.array() - column.mean()).square().sum() / (sets - 1));
    };

    // The same from the formula, at the truth.
    // guide:
    const Matrix covariance = (n * hessian(net, truth, x, outputs)).inverse();
    const VectorXd errors = covariance.diagonal().cwiseSqrt();
    // :guide
    for (unsigned k = 0; k < nw; ++k)
        std::printf("weight %u: %.3f in %d fits, %.3f from the Hessian\n", k, spread(fits.col(k)), sets, errors[k]);

    // guide:
    // The output at one place x: its gradient over the weights is a row of the Jacobian under the norm "sum".
    VectorXd output(1), slope(nw);
    const Matrix units = Matrix::Identity(nw, nw);
    const double *place = x.data() + 100, *no_target = nullptr;
    vemk_Jv(plain, truth.data(), nw, units.data(), nw, place, no_target, 1, 1, 1, output.data(), slope.data());
    const double error = std::sqrt(slope.dot(covariance * slope));
    // :guide
    std::printf("output:   %.3f in %d fits, %.3f from the Hessian\n", spread(predictions.col(0)), sets, error);
    releaseVEMKNet(net);
    releaseVEMKNet(plain);
}
