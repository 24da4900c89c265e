#pragma once

namespace VEMKN {

// The value of a scalar, that of a carrier without its derivatives.
inline double value_of(double s)
{
    return s;
}

template <class Carrier>
double value_of(const Carrier& s)
{
    return s.value;
}

}  // namespace VEMKN
