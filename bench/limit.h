#pragma once

#include <string>

#include "entries.h"

namespace bench {

// Seconds below which a call cannot well come on so many threads: its products at the rate of the fastest dgemm, and its
// element functions at the rate of their own loops in first-level cache, both measured in this process on one thread and
// shared out evenly. Nothing else counts: no copies, no bias, no small products. vemk_compute always has one
// thread.
double limit_seconds(const Entry& entry,
                     const Shape& shape,
                     const std::string& activation,
                     unsigned threads);

// The rate that the products count with.
double product_gflops();

}  // namespace bench
