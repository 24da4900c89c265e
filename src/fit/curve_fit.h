#pragma once

#include <optional>

#include "fit/objective.h"

namespace vemknfit {

// How many cores away a row is no longer one of the core's.
inline constexpr double OUTLIER = 6.0;

// A fit of one target, in units of its TargetScale: shift + 3 core output.
struct Curve {
    Vector w;
    double core = 1.0;  // standard deviation that counts as normal scatter
    double shift = 0.0;

    double unit() const { return 3.0 * core; }
};

// Nearly the same curve in units of another core: exactly where softplus is the identity, far above 0. So it has to be fitted
// again.
Curve with_core(const Network& network, Curve curve, double core);

// What weights cost: 1/2 sum of this times w^2, beside the summed negative log-likelihood. Biases cost nothing. Weights of the output
// layer are taken in units of y, so that they pull as much whatever the core.
Vector penalty_of(const Network& network, double decay, double core);

// What a curve says of rows: rows x inputs as the network takes them.
Vector predictions(const Network& network, const Curve& curve, const Matrix& inputs);

// How a curve is fitted.
struct Terms {
    double decay;                  // as in penalty_of()
    std::optional<double> core{};  // of all curves; estimated from their residuals without one
    Watch* watch = nullptr;
};

struct Settled {
    Curve curve;
    bool stands = false;
};

// Some rows, and what is asked of a curve through them. Whose bits depend on nothing else.
class CurveFit {
public:
    // Refers to network and inputs. y has one number for each row of the inputs, in units of its TargetScale.
    CurveFit(const Network& network, const Matrix& inputs, Vector y, const Terms& terms);

    const Network& network() const { return network_; }

    const Matrix& inputs() const { return inputs_; }

    const Vector& y() const { return y_; }

    const Terms& terms() const { return terms_; }

    Vector residuals(const Curve& curve) const;
    // The M-scale of the residuals, made up for what the rows in the core determine of the weights: so a curve that goes through
    // them is not taken for one that has found less scatter. Infinite where the arithmetic left the finite numbers.
    double fair_scale(const Curve& curve) const;
    Batch all_rows(const Curve& curve) const;

    // rows x weights: derivatives of the outputs, zero in rows of the tail.
    Matrix core_jacobian(const Curve& curve) const;

    // From a curve, at its core, down to where a search finds nothing lower: over all rows, or over some.
    Curve minimised(const Curve& curve, int evaluations) const;
    Curve minimised_on(const Rows& rows, const Curve& curve, int evaluations) const;

    // With the core that the residuals give: roughly, to compare curves.
    Curve refined(Curve curve) const;

    // The same until it stands: a stationary point with every row on its side of the likelihood's jump and the core that follows
    // from its own residuals. In a long valley, as of a unit that has become a straight line, as far as it gets in so many steps;
    // it stands where the last hundreds of them hardly move the curve.
    Settled settled(const Curve& start) const;

private:
    Vector penalty(double core) const { return penalty_of(network_, terms_.decay, core); }

    Curve minimised(Curve curve, const Batch& batch, int evaluations) const;
    Curve with_sides_kept(Curve curve, int steps) const;
    Settled nearly_settled(const Curve& start, int steps) const;
    void report_core(double core) const;
    double parameters(const Curve& curve) const;
    // Of the Gaussian that the rows within three scales are from, fitted with so many parameters.
    double own_core(const Curve& curve, double parameters) const;

    const Network& network_;
    const Matrix& inputs_;
    const Vector y_;
    const Terms terms_;
};

}  // namespace vemknfit
