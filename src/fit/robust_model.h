#pragma once

#include <functional>

#include "fit/model.h"
#include "fit/watch.h"

namespace vemknfit {

struct RobustOptions {
    std::vector<unsigned> hidden{6};
    std::string activation = "softplus";
    std::string target = "y";
    std::optional<double> core{};   // in units of y; estimated without one
    std::optional<double> decay{};  // chosen without one
    std::uint64_t seed = 0;
    int starts = 3;
    unsigned threads = 1;
    std::function<bool(const Progress&)> goes_on{};  // the core in units of y
};

// The largest magnitude that data may have: spreads and centres of them stay finite.
inline constexpr double LARGEST = 4e307;

// Throws a Failure that names the row for a number that is not finite or too large.
//   what : they are, for the message
void check_numbers(const Matrix& numbers, const char* what);

// Robust regression (robust_fit.h) of y on columns in their own units. A rule that is bounded is made from the data, others hold as
// they are. Throws Failure for what cannot be fitted, Cancelled where goes_on says no.
Model robust_model(const Matrix& columns,
                   const Vector& y,
                   std::vector<ColumnRule> rules,
                   const RobustOptions& options);

}  // namespace vemknfit
