#include "curve.h"

#include <algorithm>
#include <set>

#include "statistics.h"

namespace fit {
namespace {

constexpr Eigen::Index grid_points = 121;
constexpr Eigen::Index rows_averaged = 200;
constexpr Eigen::Index most_slices = 24;
constexpr Eigen::Index fewest_in_slice = 5;

/// Rows spread evenly over the file.
Matrix some_rows(const Matrix& m)
{
    const Eigen::Index rows = std::min(rows_averaged, m.rows());
    Matrix few(rows, m.cols());
    for (Eigen::Index i = 0; i < rows; ++i) few.row(i) = m.row(i * m.rows() / rows);
    return few;
}

}  // namespace

Curve average_curve(const Problem& problem,
                    const Network& plain,
                    const Vector& w,
                    Eigen::Index column,
                    const Laplace* laplace)
{
    const auto held = problem.columns.inputs.col(column);
    const Eigen::Index targets = problem.columns.targets.cols();
    Matrix rows = some_rows(problem.columns.inputs);
    Curve curve{.x = Vector::LinSpaced(grid_points, held.minCoeff(), held.maxCoeff()),
                .fit = Matrix(grid_points, targets),
                .errors = Matrix()};
    if (laplace) curve.errors.resize(grid_points, targets);
    for (Eigen::Index i = 0; i < grid_points; ++i) {
        rows.col(column).setConstant(curve.x[i]);
        const Batch batch{problem.inputs.apply(rows), Matrix::Zero(rows.rows(), targets)};
        curve.fit.row(i) = plain.outputs(w, batch.x).colwise().mean();
        if (!laplace) continue;
        const Matrix jacobian = plain.jacobian(w, batch);
        Matrix averaged = Matrix::Zero(targets, jacobian.cols());
        for (Eigen::Index row = 0; row < jacobian.rows(); ++row)
            averaged.row(row % targets) += jacobian.row(row) / static_cast<double>(rows.rows());
        curve.errors.row(i) = laplace->standard_errors(averaged).transpose();
    }
    curve.fit = problem.targets.undo(curve.fit);
    for (Eigen::Index t = 0; t < curve.errors.cols(); ++t)
        curve.errors.col(t) *= problem.targets.scales[static_cast<std::size_t>(t)].unit();
    return curve;
}

Medians sliced_medians(const Problem& problem, Eigen::Index column)
{
    const Vector held = problem.columns.inputs.col(column);
    const double low = held.minCoeff();
    const double range = held.maxCoeff() - low;
    const std::set<double> different(held.begin(), held.end());
    const auto values = static_cast<Eigen::Index>(different.size());
    const Eigen::Index slices = std::min(values, most_slices);
    std::vector<std::vector<Eigen::Index>> members(static_cast<std::size_t>(slices));
    for (Eigen::Index row = 0; row < held.size(); ++row) {
        const double part = range > 0.0 ? (held[row] - low) / range : 0.0;
        const auto slice = static_cast<Eigen::Index>(part * static_cast<double>(slices));
        members[static_cast<std::size_t>(std::min(slice, slices - 1))].push_back(row);
    }
    Medians medians{.x = Vector(slices), .targets = Matrix(slices, problem.columns.targets.cols())};
    Eigen::Index used = 0;
    for (const auto& rows : members) {
        if (static_cast<Eigen::Index>(rows.size()) < fewest_in_slice) continue;
        medians.x[used] = median(held(rows));
        for (Eigen::Index t = 0; t < medians.targets.cols(); ++t)
            medians.targets(used, t) = median(problem.columns.targets.col(t)(rows));
        ++used;
    }
    medians.x.conservativeResize(used);
    medians.targets.conservativeResize(used, Eigen::NoChange);
    return medians;
}

}  // namespace fit
