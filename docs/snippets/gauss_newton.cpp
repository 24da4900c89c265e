#include <Eigen/Dense>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <vemkn.h>

using Eigen::VectorXd;
using Matrix = Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;

static VEMKNInfo* network(const std::string& text) { return initVEMKNet(text.data(), static_cast<int>(text.size())); }

static void check(int said) {
    if (said != 0) std::exit(1);
}

int main() {
    // A smooth curve, a little scatter, and every tenth point far off.
    constexpr unsigned n = 60, nw = 10;
    VectorXd x(n), y(n), w(nw);
    for (unsigned i = 0; i < n; ++i) {
        x[i] = -3 + 0.1 * i;
        y[i] = 2 + std::sin(x[i]) + 0.3 * std::sin(37.0 * i) + (i % 10 == 9 ? 30 : 0);
    }
    for (unsigned k = 0; k < nw; ++k) w[k] = 0.4 * std::sin(1.0 + 3 * k);

    // guide:
    VEMKNInfo* robust = network("1 1 2 1 32 1 3 softplus sum_log_dnorm_fat");
    VEMKNInfo* plain = network("1 1 2 1 32 1 3 softplus sum");  // its norm: the residuals themselves
    const Matrix identity = Matrix::Identity(nw, nw);
    Matrix J(n, nw);
    VectorXd r(n), gradient(nw);
    double value, trial_value, damping = 1;
    vemk_quiet(robust, 1);  // a step may go too far
    check(vemk_g(robust, w.data(), nw, x.data(), y.data(), n, 1, 1, &value, gradient.data()));

    for (int step = 0; step <= 30; ++step) {
        if (step % 10 == 0) std::printf("step %2d: objective %.4f\n", step, value);
        check(vemk_Jv(plain, w.data(), nw, identity.data(), nw, x.data(), y.data(), n, 1, 1, r.data(), J.data()));
        const VectorXd weight = r.unaryExpr([](double e) { return std::abs(e) < 2 ? 9 : 2 / (e * e); });
        const Matrix curvature = J.transpose() * weight.asDiagonal() * J / n + damping * identity;
        const VectorXd trial = w - curvature.ldlt().solve(gradient);

        const int said = vemk_obj(robust, trial.data(), nw, x.data(), y.data(), n, 1, 1, &trial_value);
        const bool better = said == 0 && trial_value < value;
        damping *= better ? 0.3 : 5;
        if (!better) continue;
        w = trial;
        check(vemk_g(robust, w.data(), nw, x.data(), y.data(), n, 1, 1, &value, gradient.data()));
    }
    // :guide
    // J^T (weight r) is the robust gradient, but for the scale of the tail left out in the weight.
    check(vemk_Jv(plain, w.data(), nw, identity.data(), nw, x.data(), y.data(), n, 1, 1, r.data(), J.data()));
    const VectorXd slope = r.unaryExpr([](double e) { return std::abs(e) < 2 ? 9 * e : 2 / e; });
    const double error = (J.transpose() * slope / n - gradient).norm();
    if (error > 1e-6) return std::printf("J and the gradient differ by %g\n", error), 1;
    releaseVEMKNet(robust);
    releaseVEMKNet(plain);
}
