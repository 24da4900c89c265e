#include "start.h"

#include <algorithm>
#include <cmath>

#include "statistics.h"

namespace fit {
namespace {

// Enough for a median; the bisection need not see every row.
constexpr Eigen::Index rows_looked_at = 500;

Vector medians(const Matrix& m)
{
    Vector result(m.cols());
    for (Eigen::Index i = 0; i < m.cols(); ++i) result[i] = median(m.col(i));
    return result;
}

Matrix some_rows(const Matrix& m)
{
    const Eigen::Index step = std::max<Eigen::Index>(1, m.rows() / rows_looked_at);
    const Eigen::Index rows = (m.rows() + step - 1) / step;
    Matrix few(rows, m.cols());
    for (Eigen::Index i = 0; i < rows; ++i) few.row(i) = m.row(i * step);
    return few;
}

}  // namespace

Vector starting_weights(const Network& network, const Batch& batch, Random& random)
{
    const auto widths = network.shape().widths();
    Vector w(network.size());
    Eigen::Index at = 0;
    Eigen::Index last_biases = 0;
    for (std::size_t layer = 0; layer + 1 < widths.size(); ++layer) {
        const Eigen::Index rows = widths[layer];
        const Eigen::Index columns = widths[layer + 1];
        last_biases = at;
        for (Eigen::Index i = 0; i < columns; ++i) w[at++] = random.normal();
        const double spread = 1.0 / std::sqrt(static_cast<double>(rows));
        for (Eigen::Index i = 0; i < rows * columns; ++i) w[at++] = spread * random.normal();
    }

    const Vector wanted = medians(batch.y);
    const Matrix x = some_rows(batch.x);
    const double reach = wanted.cwiseAbs().maxCoeff() + 20.0;
    Vector low = Vector::Constant(wanted.size(), -reach);
    Vector high = -low;
    auto biases = w.segment(last_biases, wanted.size());
    for (int halving = 0; halving < 40; ++halving) {
        biases = 0.5 * (low + high);
        const Vector reached = medians(network.outputs(w, x));
        low = (reached.array() < wanted.array()).select(biases, low);
        high = (reached.array() < wanted.array()).select(high, biases);
    }
    return w;
}

}  // namespace fit
