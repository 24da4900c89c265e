#include "scaling.h"

#include <Eigen/Cholesky>
#include <algorithm>
#include <cmath>
#include <numbers>

#include "statistics.h"
#include "text.h"
#include "user_error.h"

namespace fit {
namespace {

// Leaves room below pi/2, which atan reaches for infinite arguments only.
constexpr double atan_reach = 1.4;

/// Residuals of a least-absolute-deviations line, by iteratively reweighted least squares.
Vector residuals_of_robust_line(const Matrix& x, const Vector& y)
{
    Eigen::MatrixXd design(x.rows(), x.cols() + 1);
    design << Eigen::VectorXd::Ones(x.rows()), x;
    const double floor = 1e-6 * standard_deviation(y);
    Vector weight = Vector::Ones(x.rows());
    Vector residual = y;
    for (int round = 0; round < 30; ++round) {
        const Eigen::MatrixXd weighted = weight.asDiagonal() * design;
        Eigen::MatrixXd normal = design.transpose() * weighted;
        // Inputs that depend on each other make this singular; a trace of ridge picks one solution.
        normal.diagonal().array() += 1e-10 * normal.trace();
        residual = y - design * normal.ldlt().solve(weighted.transpose() * y);
        weight = residual.cwiseAbs().cwiseMax(floor).cwiseInverse();
    }
    return residual;
}

double lowest_core_for_atan(const Vector& y)
{
    return (y.maxCoeff() - y.minCoeff()) / (2.0 * atan_reach * 3.0);
}

double choose_shift(const Vector& y, double core, OutputRange range)
{
    switch (range) {
        case OutputRange::positive:
            return y.minCoeff() - 3.0 * core;
        case OutputRange::half_pi:
            return 0.5 * (y.minCoeff() + y.maxCoeff());
        case OutputRange::unbounded:
            break;
    }
    return median(y);
}

void check_range(const Vector& y,
                 const TargetScale& scale,
                 OutputRange range,
                 const std::string& name,
                 std::vector<std::string>& notes)
{
    const Eigen::ArrayXd mapped = (y.array() - scale.shift) / scale.unit();
    if (range == OutputRange::half_pi && mapped.abs().maxCoeff() > std::numbers::pi / 2)
        throw UserError("target '" + name +
                        "' does not fit into the range of atan, (-pi/2, pi/2): " + "with core " +
                        number(scale.core) + " and shift " + number(scale.shift) + " it maps to " +
                        number(mapped.minCoeff()) + " ... " + number(mapped.maxCoeff()) +
                        ". Take --core " + number(lowest_core_for_atan(y)) +
                        " or more, or another activation");
    const auto below = (mapped <= 0.0).count();
    if (range == OutputRange::positive && below > 0)
        notes.push_back(number(static_cast<double>(below)) + " values of '" + name +
                        "' lie below the shift, where the outputs of this activation do not reach");
}

}  // namespace

InputMap::InputMap(const Matrix& inputs,
                   const std::vector<std::string>& names,
                   const std::vector<Periodic>& periodic,
                   Scaling scaling)
{
    for (const Periodic& wanted : periodic)
        if (std::count(names.begin(), names.end(), wanted.name) == 0)
            throw UserError("--periodic: '" + wanted.name + "' is not an input column");
    for (std::size_t i = 0; i < names.size(); ++i) {
        const Vector column = inputs.col(static_cast<Eigen::Index>(i));
        InputRule rule;
        for (const Periodic& wanted : periodic)
            if (wanted.name == names[i]) rule.period = wanted.period;
        if (rule.period == 0.0 && scaling == Scaling::bounded) {
            rule = vemknfit::bounded_rule(column);
        } else if (rule.period == 0.0) {
            rule.centre = column.mean();
            rule.spread = standard_deviation(column);
            if (rule.spread <= 1e-12 * std::abs(rule.centre)) {
                constant_.push_back(names[i]);
                rule.spread = std::max(1.0, std::abs(rule.centre));
            }
        }
        rule.name = names[i];
        add(std::move(rule));
    }
}

void InputMap::add(InputRule rule)
{
    if (rule.period > 0.0) {
        names_.push_back("sin(" + rule.name + ")");
        names_.push_back("cos(" + rule.name + ")");
    } else {
        names_.push_back(rule.name);
    }
    rules_.push_back(std::move(rule));
}

Matrix InputMap::apply(const Matrix& inputs) const
{
    return vemknfit::InputMap(rules_).apply(inputs);
}

std::vector<std::string> InputMap::describe() const
{
    std::vector<std::string> lines;
    for (const InputRule& rule : rules_)
        lines.push_back(
            rule.name + ": " +
            (rule.period > 0.0
                 ? "sin and cos of 2 pi x / " + exact_number(rule.period)
                 : "(x - " + exact_number(rule.centre) + ") / " + exact_number(rule.spread) +
                       (rule.bounded ? ", bent beyond " + number(vemknfit::InputMap::BEND) : "")));
    return lines;
}

Matrix TargetMap::apply(const Matrix& targets) const
{
    Matrix mapped = targets;
    for (std::size_t i = 0; i < scales.size(); ++i) {
        auto column = mapped.col(static_cast<Eigen::Index>(i)).array();
        column = (column - scales[i].shift) / scales[i].unit();
    }
    return mapped;
}

Matrix TargetMap::undo(const Matrix& mapped) const
{
    Matrix targets = mapped;
    for (std::size_t i = 0; i < scales.size(); ++i) {
        auto column = targets.col(static_cast<Eigen::Index>(i)).array();
        column = column * scales[i].unit() + scales[i].shift;
    }
    return targets;
}

double default_core(const Matrix& x, const Eigen::VectorXd& y)
{
    if (y.maxCoeff() == y.minCoeff())
        throw UserError("the target has the value " + number(y[0]) + " in every row");
    double own = mad_scale(y);
    if (own == 0.0) own = standard_deviation(y);
    return std::max(mad_scale(residuals_of_robust_line(x, y)), 0.01 * own);
}

TargetMap make_target_map(const Matrix& x,
                          const Matrix& y,
                          const std::vector<std::string>& names,
                          const TargetOptions& options,
                          OutputRange range,
                          std::vector<std::string>& notes)
{
    if (options.cores.size() > 1 && options.cores.size() != names.size())
        throw UserError("--core: give one value, or one for each of the " +
                        std::to_string(names.size()) + " targets");
    TargetMap map;
    for (std::size_t i = 0; i < names.size(); ++i) {
        const Vector column = y.col(static_cast<Eigen::Index>(i));
        TargetScale scale;
        if (options.cores.empty()) {
            scale.core = default_core(x, column);
            const double lowest = lowest_core_for_atan(column);
            if (range == OutputRange::half_pi && scale.core < lowest) {
                scale.core = lowest;
                notes.push_back("core of '" + names[i] + "' enlarged to " + number(lowest) +
                                " so that it fits into the range of atan");
            }
        } else {
            scale.core = options.cores[options.cores.size() > 1 ? i : 0];
        }
        scale.shift = options.shift.value_or(choose_shift(column, scale.core, range));
        check_range(column, scale, range, names[i], notes);
        map.scales.push_back(scale);
    }
    return map;
}

}  // namespace fit
