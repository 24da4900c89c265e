#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "minimise.h"

namespace fit {
namespace {

/// A step, and by how much the quadratic model falls along it.
struct Step {
    Vector to;
    double expected = 0.0;
};

/** Steihaug's way to a minimum of the model g.p + p.H.p/2 within |p| <= radius: conjugate gradients,
 * up to the region's boundary, to negative curvature, or until the gradient has become small enough.
 * The path does not depend on the radius, and its points lie ever farther out, so it is kept: after a
 * step that was refused, a shorter one costs no further products. */
class SteihaugPath {
public:
    SteihaugPath(NormObjective& objective, const Vector& w, const Vector& gradient)
        : objective_(objective),
          w_(w),
          gradient_(gradient),
          enough_(gradient.norm() * std::min(0.1, gradient.norm()))
    {
        parts_.push_back(part_from(Vector::Zero(w.size()), gradient, -gradient));
    }

    Step step(double radius)
    {
        for (std::size_t i = 0;; ++i) {
            const double within = to_boundary(parts_[i], radius);
            if (within <= parts_[i].length) return step_on(parts_[i], within);
            if (i + 1 == parts_.size() && !extend()) return step_on(parts_[i], parts_[i].length);
        }
    }

private:
    /// A stretch of the path: at + t * along for t up to length.
    struct Part {
        Vector at;
        Vector residual;  ///< the model's gradient there
        Vector along;
        Vector product;  ///< the Hessian times along
        double length = 0.0;
    };

    Part part_from(const Vector& at, const Vector& residual, const Vector& along)
    {
        Part part{at, residual, along, objective_.curvature_along(w_, along), 0.0};
        const double curvature = along.dot(part.product);
        part.length = curvature > 0.0 ? residual.squaredNorm() / curvature
                                      : std::numeric_limits<double>::infinity();
        return part;
    }

    bool extend()
    {
        const Part& last = parts_.back();
        const Vector residual = last.residual + last.length * last.product;
        const auto most = static_cast<std::size_t>(2 * w_.size());
        if (residual.norm() <= enough_ || parts_.size() >= most) return false;
        const double turn = residual.squaredNorm() / last.residual.squaredNorm();
        parts_.push_back(
            part_from(last.at + last.length * last.along, residual, turn * last.along - residual));
        return true;
    }

    static double to_boundary(const Part& part, double radius)
    {
        const double a = part.along.squaredNorm();
        const double b = part.at.dot(part.along);
        const double c = part.at.squaredNorm() - radius * radius;
        return (std::sqrt(std::max(0.0, b * b - a * c)) - b) / a;
    }

    Step step_on(const Part& part, double t) const
    {
        const Vector to = part.at + t * part.along;
        const Vector slope = part.residual + t * part.product;
        return {to, -0.5 * to.dot(gradient_ + slope)};
    }

    NormObjective& objective_;
    const Vector& w_;
    const Vector& gradient_;
    double enough_;
    std::vector<Part> parts_;
};

}  // namespace

std::string minimise_newton(NormObjective& objective,
                            Vector w,
                            const StopRule& stop,
                            Monitor& monitor)
{
    Vector gradient;
    double value = objective.gradient(w, gradient);
    double radius = 1.0;
    bool go_on = monitor.improved(w, value, objective.counts.total());
    while (go_on) {
        if (gradient.squaredNorm() == 0.0) return "converged";
        SteihaugPath path(objective, w, gradient);
        const double worth = stop.tolerance * std::max(std::abs(value), 1e-12);
        for (bool moved = false; !moved;) {
            if (objective.counts.total() >= stop.max_evaluations) return "evaluation limit";
            const Step step = path.step(radius);
            if (!(step.expected > worth)) return "converged";
            const double trial = objective.value(w + step.to);
            const double agreement = (value - trial) / step.expected;
            // A jump of the likelihood or a refused step shows as no agreement: look closer by.
            if (agreement < 0.25)
                radius = 0.25 * step.to.norm();
            else if (agreement > 0.75 && step.to.norm() > 0.99 * radius)
                radius *= 2.0;
            moved = trial < value;
            if (moved) w += step.to;
            if (radius < 1e-10 * (1.0 + w.norm())) return "no lower point nearby";
        }
        value = objective.gradient(w, gradient);
        go_on = monitor.improved(w, value, objective.counts.total());
    }
    return "held-out error no longer falls";
}

}  // namespace fit
