#pragma once

#include "fad/errors.h"
#include "fad/tangent_counts.h"
#include "model/matrix.h"

// The scalar carrier's arithmetic; the carrier itself is in vemkn_errors.h, where hosts meet it.

namespace yafad {
namespace FO {
namespace Dynamic {

// a becomes the constant Active(number).
inline void set_constant(Active<1>& a, double number)
{
    a.N = scalar_tangent_count;
    a.value = number;
    VEMKN::set_size(a.derivatives, a.N);
    a.derivatives = 0.0;
}

inline Active<1>& operator+=(Active<1>& a, const Active<1>& b)
{
    a.value += b.value;
    a.derivatives += b.derivatives;
    return a;
}

inline Active<1>& operator*=(Active<1>& a, double factor)
{
    a.value *= factor;
    a.derivatives *= factor;
    return a;
}

// The one operation that reports a discontinuity: a divisor of +0.0 or -0.0 is reported to the error handler, and then the
// division is carried out all the same. A NaN divisor is not reported.
Active<1>& operator/=(Active<1>& a, double divisor);

inline double value_of(const Active<1>& a)
{
    return a.value;
}

}  // namespace Dynamic
}  // namespace FO

}  // namespace yafad
