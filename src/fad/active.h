#pragma once

#include <cstdint>
#include <string>
#include <valarray>

#include "fad/errors.h"
#include "model/matrix.h"
#include "vemkn.h"

namespace yafad {
namespace FO {
namespace Dynamic {

template <int Order>
class Active;

// The scalar carrier: a value and its derivatives along N directions. Made from a number it is a constant, with NDIR
// derivatives of zero.
template <>
class Active<1> {
public:
    Active() = default;

    explicit Active(double number) : N(NDIR), value(number), derivatives(0.0, NDIR) {}

    // Becomes the constant that Active(number) is.
    void set_constant(double number)
    {
        N = NDIR;
        value = number;
        VEMKN::set_size(derivatives, NDIR);
        derivatives = 0.0;
    }

    Active& operator+=(const Active& other)
    {
        value += other.value;
        derivatives += other.derivatives;
        return *this;
    }

    Active& operator*=(double factor)
    {
        value *= factor;
        derivatives *= factor;
        return *this;
    }

    // The one operation that reports a discontinuity: a divisor of +0.0 or -0.0 is reported to the error handler, and then the
    // division is carried out all the same. A NaN divisor is not reported.
    Active& operator/=(double divisor);

    std::uint64_t N = 0;
    double value = 0.0;
    std::valarray<double> derivatives;
};

inline double value_of(const Active<1>& a)
{
    return a.value;
}

}  // namespace Dynamic
}  // namespace FO

// A division by zero: the dividend is both the result and the left operand, the divisor is a constant.
template <class Scalar>
class Discontinuity;

template <>
class Discontinuity<FO::Dynamic::Active<1>> : public Error {
public:
    using Scalar = FO::Dynamic::Active<1>;

    Discontinuity(std::string file_name,
                  int line_number,
                  int error_category,
                  std::string text,
                  const Scalar& result_operand,
                  const Scalar& left_operand,
                  const Scalar& right_operand)
        : Error(std::move(file_name), line_number, error_category, std::move(text)),
          result(result_operand),
          left(left_operand),
          right(right_operand)
    {
    }

    const Scalar& result;
    const Scalar& left;
    const Scalar& right;
};

}  // namespace yafad
