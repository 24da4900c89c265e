#ifndef VEMKN_FIT_GUARD_H
#define VEMKN_FIT_GUARD_H

#include "network.h"

namespace fit {

/** Keeps the weights where the network can be evaluated.
 *
 * A line search that extrapolates may try any step: weights of 1e30 in three layers, squared in the
 * objective, are an overflow. The library's quiet mode then gives an infinity, which the objective
 * hands on, but well before that all digits are lost, and gradients overflow earlier than values.
 * Every step is therefore checked before the library sees it: with the
 * largest magnitude of each input, the largest magnitude that any pre-activation can have is carried
 * from layer to layer, for no more than one row's work. Beyond 1e6 a step is refused. That is far
 * from trouble, as trouble begins where the square of something overflows, at 1e154, and far from
 * any use. A lower limit would act as a wall: small data sets are overfitted with pre-activations of
 * several hundreds, and it is the held-out rows that should put an end to that. Box bounds on the
 * weights would have to be very narrow to promise the same, as they multiply up over the layers. */
class Guard {
public:
    /// @param[in] magnitude  the largest |x| of each input column, over every row ever evaluated
    Guard(const Shape& shape, Vector magnitude);

    /// The bound divided by its limit: a step is safe up to 1. Infinite for weights that are not finite.
    double load(const Vector& w) const;

    bool safe(const Vector& w) const { return load(w) <= 1.0; }

    /// The largest magnitude that a pre-activation, and so an output, may have.
    static constexpr double limit = 1e6;

private:
    Shape shape_;
    Vector magnitude_;
};

}  // namespace fit

#endif
