#ifndef VEMKN_FIT_NETWORK_H
#define VEMKN_FIT_NETWORK_H

#include <vemkn.h>

#include <memory>
#include <string>
#include <vector>

#include "matrix.h"
#include "scaling.h"

namespace fit {

struct Shape {
    unsigned inputs = 0;
    unsigned outputs = 0;
    std::vector<unsigned> hidden;
    std::string activation;

    /// Widths from the inputs to the outputs.
    std::vector<unsigned> widths() const;
    /// As in "5-6-1 softplus".
    std::string text() const;
    OutputRange output_range() const;
};

struct Threads {
    unsigned count = 1;
    int batch = 64;  ///< rows that the library works on at a time
};

/** One handle of the library. Weights are flat vectors, layer by layer: biases, then the matrix by
 * rows, one row for each input. Every call throws std::runtime_error if the library refuses it. */
class Network {
public:
    /// @param[in] norm  "sum" or "sum_log_dnorm_fat"
    Network(const Shape& shape, const std::string& norm, const Threads& threads);

    Eigen::Index size() const { return static_cast<Eigen::Index>(size_); }

    const Shape& shape() const { return shape_; }

    /// The text that the library makes this network from.
    const std::string& description() const { return description_; }

    Matrix outputs(const Vector& w, const Matrix& x) const;
    Matrix residuals(const Vector& w, const Batch& batch) const;
    double value(const Vector& w, const Batch& batch) const;
    double gradient(const Vector& w, const Batch& batch, Vector& gradient) const;
    /// The Hessian times one tangent, for about two gradients' work.
    Vector hessian_times(const Vector& w, const Batch& batch, const Vector& tangent) const;
    /// The whole Hessian, for as many gradients' work as there are weights.
    double hessian(const Vector& w, const Batch& batch, Vector& gradient, Matrix& hessian) const;
    /// Derivatives of the normed residuals, a row for each element and a column for each weight.
    Matrix jacobian(const Vector& w, const Batch& batch) const;
    /// The sum over all elements e of u[e] times the gradient of normed residual e.
    Vector weighted_gradient(const Vector& w, const Batch& batch, const Matrix& u) const;

private:
    struct Release {
        void operator()(VEMKNInfo* net) const { releaseVEMKNet(net); }
    };

    Shape shape_;
    std::string description_;
    std::unique_ptr<VEMKNInfo, Release> net_;
    unsigned size_ = 0;
};

}  // namespace fit

#endif
