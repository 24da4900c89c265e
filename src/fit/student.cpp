#include "fit/student.h"

#include <Eigen/Core>
#include <algorithm>
#include <cmath>
#include <unsupported/Eigen/SpecialFunctions>

namespace vemknfit {
namespace {

// That |T| exceeds t.
double both_tails(double t, double freedom)
{
    using One = Eigen::Array<double, 1, 1>;
    const One a = One::Constant(0.5 * freedom), b = One::Constant(0.5);
    const One x = One::Constant(freedom / (freedom + t * t));
    return Eigen::betainc(a, b, x)[0];
}

}  // namespace

double student_quantile(double level, double freedom)
{
    constexpr double ALL_BUT_GAUSSIAN = 1e6, WIDEST = 1e17;
    const double degrees = std::min(freedom, ALL_BUT_GAUSSIAN);
    double low = 0.0, high = 1.0;
    while (high < WIDEST && both_tails(high, degrees) > 1.0 - level) high *= 2.0;
    while (true) {
        const double middle = 0.5 * (low + high);
        if (middle <= low || middle >= high) return high;
        (both_tails(middle, degrees) > 1.0 - level ? low : high) = middle;
    }
}

}  // namespace vemknfit
