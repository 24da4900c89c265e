#include "guard.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace fit {
namespace {

/// A bound on the magnitude of an activation's value, from one on its argument.
double activated(const std::string& activation, double bound)
{
    if (activation == "atan") return std::min(bound, 1.5707963267948966);
    return bound + 1.0;  // enough for softplus: log(1 + exp(p)) <= |p| + log(2)
}

}  // namespace

Guard::Guard(const Shape& shape, Vector magnitude) : shape_(shape), magnitude_(std::move(magnitude))
{
}

double Guard::load(const Vector& w) const
{
    const auto widths = shape_.widths();
    Vector value = magnitude_;
    double worst = 0.0;
    Eigen::Index at = 0;
    for (std::size_t layer = 0; layer + 1 < widths.size(); ++layer) {
        const Eigen::Index rows = widths[layer];
        const Eigen::Index columns = widths[layer + 1];
        const Eigen::Map<const Matrix> weights(w.data() + at + columns, rows, columns);
        Vector bound = w.segment(at, columns).cwiseAbs();
        bound += weights.cwiseAbs().transpose() * value;
        // Written so that a NaN fails, too.
        if (!(bound.maxCoeff() < std::numeric_limits<double>::max() && bound.allFinite()))
            return std::numeric_limits<double>::infinity();
        worst = std::max(worst, bound.maxCoeff());
        value = bound.unaryExpr([&](double b) { return activated(shape_.activation, b); });
        at += columns * (rows + 1);
    }
    return worst / limit;
}

}  // namespace fit
