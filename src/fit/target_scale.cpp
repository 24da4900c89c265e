#include "fit/target_scale.h"

#include "fit/robust_scale.h"

namespace vemknfit {

TargetScale::TargetScale(const Vector& y)
    : half_centre_(median(0.5 * y)), half_spread_(mad(0.5 * y))
{
}

TargetScale TargetScale::by_quantiles(const Vector& y)
{
    return {median(0.5 * y), quantile_deviation(0.5 * y)};
}

Vector TargetScale::apply(const Vector& y) const
{
    return (0.5 * y.array() - half_centre_) / half_spread_;
}

Vector TargetScale::undo(const Vector& scaled) const
{
    return 2.0 * (half_spread_ * scaled.array() + half_centre_);
}

}  // namespace vemknfit
