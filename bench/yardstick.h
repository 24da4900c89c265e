#pragma once

#include <algorithm>
#include <chrono>
#include <functional>
#include <vector>

#include "problem.h"

namespace bench {

// Median of repeated timings of work in seconds, each long enough for the clock.
double median_seconds(const std::function<void()>& work);

// Seconds that bare BLAS calls of the library's shapes take on one thread, slice by slice over all rows, and nothing else:
// one product a layer forward; two a layer backward, one for the first, whose input has no adjoint.
struct Products {
    double forward;
    double backward;
};

Products bare_products(const Shape& shape, unsigned batch);

}  // namespace bench
