#pragma once

#include "fit/matrix.h"

namespace vemknfit {

// Targets in units of their own: the median goes to 0, the median absolute deviation of a Gaussian to 1. Whatever the units of y,
// the fit then computes with the same numbers.
class TargetScale {
public:
    // At least one finite number.
    explicit TargetScale(const Vector& y);

    // In units that there are unless all targets are one value.
    static TargetScale by_quantiles(const Vector& y);

    // Whether more than half of the targets are one value, of which no scatter can be had.
    bool is_degenerate() const { return half_spread_ == 0.0; }

    double spread() const { return 2.0 * half_spread_; }

    Vector apply(const Vector& y) const;
    Vector undo(const Vector& scaled) const;

private:
    TargetScale(double half_centre, double half_spread)
        : half_centre_(half_centre), half_spread_(half_spread)
    {
    }

    // Halves, since the difference of two numbers may overflow.
    double half_centre_, half_spread_;
};

}  // namespace vemknfit
