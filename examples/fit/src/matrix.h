#ifndef VEMKN_FIT_MATRIX_H
#define VEMKN_FIT_MATRIX_H

#include <Eigen/Core>

namespace fit {

/// Row by row, as the library's interface wants its batches.
using Matrix = Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;
using Vector = Eigen::VectorXd;

/// Rows in the units that the network works in.
struct Batch {
    Matrix x;
    Matrix y;
};

}  // namespace fit

#endif
