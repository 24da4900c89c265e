#pragma once

#include <Eigen/Core>
#include <vector>

namespace vemknfit {

using Vector = Eigen::VectorXd;
// Row by row, as the library takes batches.
using Matrix = Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;

// Rows of a matrix or entries of a vector, by their numbers.
using Rows = std::vector<Eigen::Index>;

}  // namespace vemknfit
