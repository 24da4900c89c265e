#pragma once

#include "fit/matrix.h"

namespace vemknfit {

// From the columns of the data to the inputs of the network: the median goes to 0, a quantile spread to 1, and what lies further
// out than BEND is bent so that it stays below BEND + ROOM. So a gross outlier in an input is one row at the edge, not the scale
// of all others, and no input overflows.
class InputMap {
public:
    static constexpr double BEND = 3.0, ROOM = 2.0;

    // Takes medians and spreads from rows x columns of finite numbers, at least one row.
    explicit InputMap(const Matrix& columns);

    // rows x the same columns
    Matrix apply(const Matrix& columns) const;

    // Rows with a cell further out than BEND.
    Rows far_out(const Matrix& columns) const;

private:
    double scaled(double x, Eigen::Index column) const;

    // Halves, since the difference of two numbers may overflow.
    Vector half_centre_, half_spread_;
};

}  // namespace vemknfit
