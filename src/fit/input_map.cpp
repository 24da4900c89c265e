#include "fit/input_map.h"

#include <cmath>
#include <numbers>
#include <utility>

#include "fit/robust_scale.h"

namespace vemknfit {
namespace {

// By halves, since the difference of two numbers may overflow.
double scaled(double x, const ColumnRule& rule)
{
    return (0.5 * x - 0.5 * rule.centre) / (0.5 * rule.spread);
}

double bent(double z)
{
    const double beyond = std::abs(z) - InputMap::BEND;
    if (beyond <= 0.0) return z;
    return std::copysign(InputMap::BEND + InputMap::ROOM * -std::expm1(-beyond / InputMap::ROOM),
                         z);
}

std::vector<ColumnRule> bounded_rules(const Matrix& columns)
{
    std::vector<ColumnRule> rules;
    for (Eigen::Index c = 0; c < columns.cols(); ++c) rules.push_back(bounded_rule(columns.col(c)));
    return rules;
}

}  // namespace

ColumnRule bounded_rule(const Vector& column)
{
    const Vector half = 0.5 * column;
    const double half_spread = quantile_deviation(half);
    return {.centre = 2.0 * median(half),
            .spread = half_spread > 0.0 ? 2.0 * half_spread : 2.0,
            .bounded = true};
}

InputMap::InputMap(std::vector<ColumnRule> rules) : rules_(std::move(rules)) {}

InputMap::InputMap(const Matrix& columns) : InputMap(bounded_rules(columns)) {}

Eigen::Index InputMap::width() const
{
    Eigen::Index width = 0;
    for (const ColumnRule& rule : rules_) width += rule.width();
    return width;
}

Matrix InputMap::apply(const Matrix& columns) const
{
    Matrix inputs(columns.rows(), width());
    Eigen::Index c = 0, to = 0;
    for (const ColumnRule& rule : rules_) {
        const auto column = columns.col(c++).array();
        if (rule.period > 0.0) {
            const double turn = 2.0 * std::numbers::pi / rule.period;
            inputs.col(to++) = (turn * column).sin();
            inputs.col(to++) = (turn * column).cos();
        } else if (rule.bounded) {
            inputs.col(to++) = column.unaryExpr([&](double x) { return bent(scaled(x, rule)); });
        } else {
            inputs.col(to++) = (column - rule.centre) / rule.spread;
        }
    }
    return inputs;
}

Rows InputMap::far_out(const Matrix& columns) const
{
    Rows rows;
    for (Eigen::Index r = 0; r < columns.rows(); ++r) {
        Eigen::Index c = 0;
        for (const ColumnRule& rule : rules_) {
            const double x = columns(r, c++);
            if (!rule.bounded || rule.period > 0.0 || std::abs(scaled(x, rule)) <= BEND) continue;
            rows.push_back(r);
            break;
        }
    }
    return rows;
}

}  // namespace vemknfit
