#pragma once

namespace vemknfit {

// The t that Student's distribution with so many degrees of freedom exceeds with the probability (1 - level) / 2: a level of 0.95
// lies within plus and minus t. 0 < level < 1, freedom at least 1.
double student_quantile(double level, double freedom);

}  // namespace vemknfit
