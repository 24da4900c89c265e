#pragma once

#include <string>
#include <vector>

#include "fit/matrix.h"

namespace vemknfit {

// How a column of the data comes to the network: with a period, as sine and cosine of 2 pi x / period; else as (x - centre) / spread,
// and a bounded one bent where it gets far out.
struct ColumnRule {
    std::string name{};
    double period = 0.0;  // 0 for a column that is not periodic
    double centre = 0.0;
    double spread = 1.0;
    bool bounded = false;

    Eigen::Index width() const { return period > 0.0 ? 2 : 1; }
};

// The rule of a column of finite numbers, at least one: the median goes to 0, a quantile spread to 1, and what lies further out than
// InputMap::BEND is bent. So a gross outlier in an input is one row at the edge, not the scale of all others.
ColumnRule bounded_rule(const Vector& column);

// From the columns of the data to the inputs of the network.
class InputMap {
public:
    // What lies further out than BEND stays below BEND + ROOM.
    static constexpr double BEND = 3.0, ROOM = 2.0;

    explicit InputMap(std::vector<ColumnRule> rules);

    // All columns bounded.
    explicit InputMap(const Matrix& columns);

    const std::vector<ColumnRule>& rules() const { return rules_; }

    // How many inputs there are.
    Eigen::Index width() const;

    // rows x columns to rows x width(), where nothing overflows in a bounded column
    Matrix apply(const Matrix& columns) const;

    // Rows with a cell of a bounded column further out than BEND.
    Rows far_out(const Matrix& columns) const;

private:
    std::vector<ColumnRule> rules_;
};

}  // namespace vemknfit
