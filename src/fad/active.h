#pragma once

#include <algorithm>
#include <concepts>

#include "fad/errors.h"
#include "fad/tangent_counts.h"
#include "model/matrix.h"
#include "runtime/traps.h"

// Scalar carriers and their arithmetic. Active<1> is in vemkn_errors.h, where hosts meet it.

namespace yafad {
namespace FO {
namespace Dynamic {

// The scalar that goes with bundles: Active<1> in the memory of a call.
struct WorkScalar {
    WorkScalar() = default;

    // A constant, with as many derivatives of zero as the call has tangents.
    explicit WorkScalar(double number) : value(number), derivatives(scalar_tangent_count) {}

    double value = 0.0;
    VEMKN::AlignedArray derivatives;
};

template <class S>
concept ScalarCarrier = std::same_as<S, Active<1>> || std::same_as<S, WorkScalar>;

inline void set_tangents(Active<1>& a, std::uint64_t n)
{
    a.N = n;
    VEMKN::set_size(a.derivatives, n);
}

inline void set_tangents(WorkScalar& a, std::uint64_t n)
{
    a.derivatives.set_size(n);
}

// a becomes a constant.
template <ScalarCarrier S>
void set_constant(S& a, double number)
{
    set_tangents(a, scalar_tangent_count);
    a.value = number;
    a.derivatives = 0.0;
}

template <ScalarCarrier S>
S& operator+=(S& a, const S& b)
{
    a.value += b.value;
    const double* other = std::begin(b.derivatives);
    for (double& derivative : a.derivatives) derivative += *other++;
    return a;
}

template <ScalarCarrier S>
S& operator*=(S& a, double factor)
{
    a.value *= factor;
    for (double& derivative : a.derivatives) derivative *= factor;
    return a;
}

// Reports the division of a carrier by zero.
void report_pole_division(const Active<1>& dividend, double divisor);
void report_pole_division(const WorkScalar& dividend, double divisor);

// The one operation that reports a discontinuity: a divisor of +0.0 or -0.0 is reported to the error handler, and then the
// division is carried out all the same. A NaN divisor is not reported.
template <ScalarCarrier S>
S& operator/=(S& a, double divisor)
{
    const bool is_pole = divisor == 0.0;
    if (is_pole) {
        VEMKN::look_at_flags();  // with traps nobody would come here
        report_pole_division(a, divisor);
    }
    a.value /= divisor;
    for (double& derivative : a.derivatives) derivative /= divisor;
    if (is_pole) VEMKN::look_at_flags();  // before anything is reported again
    return a;
}

template <ScalarCarrier S>
double value_of(const S& a)
{
    return a.value;
}

}  // namespace Dynamic
}  // namespace FO

using FO::Dynamic::ScalarCarrier;
using FO::Dynamic::WorkScalar;

}  // namespace yafad
