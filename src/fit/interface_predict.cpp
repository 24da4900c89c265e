#include <algorithm>
#include <cmath>

#include "fit/interface.h"
#include "fit/robust_model.h"
#include "fit/student.h"

namespace {

using namespace vemknfit;

void check_columns(const VEMKNFit* fit, std::size_t columns)
{
    check_given(fit, "fit");
    if (columns != fit->model.inputs.size())
        wrong("columns is " + std::to_string(columns) + ", the model has " +
              std::to_string(fit->model.inputs.size()));
}

Matrix checked_rows(const double* x, std::size_t rows, std::size_t columns)
{
    check_given(x, "x");
    Matrix data = matrix_of(x, rows, columns);
    check_numbers(data, "x");
    return data;
}

void check_finite(const Matrix& found)
{
    for (Eigen::Index r = 0; r < found.rows(); ++r) {
        if (!found.row(r).allFinite())
            throw Failure(
                VEMKN_FIT_DATA,
                "x: row " + std::to_string(r + 1) + ": the inputs are too large for this model",
                r);
    }
}

void write(const Matrix& found, double* to)
{
    if (to != nullptr) std::copy(found.data(), found.data() + found.size(), to);
}

}  // namespace

int vemkn_fit_predict(
    const VEMKNFit* fit, const double* x, size_t rows, size_t columns, double* prediction)
{
    return guarded([&] {
        check_columns(fit, columns);
        if (rows == 0) return;
        const Matrix data = checked_rows(x, rows, columns);
        check_given(prediction, "prediction");
        const Matrix found = fit->model.predict(fit->network, data);
        check_finite(found);
        write(found, prediction);
    });
}

int vemkn_fit_interval(const VEMKNFit* fit,
                       const double* x,
                       size_t rows,
                       size_t columns,
                       int kind,
                       double level,
                       double* prediction,
                       double* error,
                       double* lower,
                       double* upper)
{
    return guarded([&] {
        check_columns(fit, columns);
        if (kind != VEMKN_FIT_CONFIDENCE && kind != VEMKN_FIT_PREDICTION)
            wrong("kind is neither VEMKN_FIT_CONFIDENCE nor VEMKN_FIT_PREDICTION");
        if (!(level > 0.0 && level < 1.0)) wrong("level is not between 0 and 1");
        if (rows == 0) return;
        const Matrix data = checked_rows(x, rows, columns);
        const Model& model = fit->model;
        const Vector errors = model.errors(fit->network, data);
        Matrix found(data.rows(), 4);
        found.col(0) = model.predict(fit->network, data).col(0);
        found.col(1) = errors;
        const double scatter = kind == VEMKN_FIT_PREDICTION ? model.targets.front().core : 0.0;
        const Vector reach =
            student_quantile(level, model.uncertainty->freedom) *
            errors.unaryExpr([&](double curve) { return std::hypot(curve, scatter); });
        found.col(2) = found.col(0) - reach;
        found.col(3) = found.col(0) + reach;
        check_finite(found);
        write(found.col(0), prediction);
        write(found.col(1), error);
        write(found.col(2), lower);
        write(found.col(3), upper);
    });
}
