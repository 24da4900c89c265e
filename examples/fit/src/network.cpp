#include "network.h"

#include <limits>
#include <stdexcept>

namespace fit {
namespace {

// 1 is no refusal: it says that not all results are finite, which whoever reads them will see.
void accepted(int status, const char* call)
{
    if (status < 0) throw std::runtime_error(std::string(call) + ": the library refused the call");
}

unsigned count(Eigen::Index n)
{
    if (n > std::numeric_limits<unsigned>::max()) throw std::length_error("too many rows");
    return static_cast<unsigned>(n);
}

std::string describe(const Shape& shape, const std::string& norm, int batch)
{
    const auto widths = shape.widths();
    std::string text = std::to_string(shape.inputs) + " " + std::to_string(shape.outputs) + " " +
                       std::to_string(widths.size() - 1) + " 1 " + std::to_string(batch);
    for (std::size_t i = 0; i + 1 < widths.size(); ++i) text += " " + std::to_string(widths[i]);
    return text + " " + shape.activation + " " + norm;
}

}  // namespace

std::vector<unsigned> Shape::widths() const
{
    std::vector<unsigned> all{inputs};
    all.insert(all.end(), hidden.begin(), hidden.end());
    all.push_back(outputs);
    return all;
}

std::string Shape::text() const
{
    std::string joined;
    for (const unsigned width : widths())
        joined += (joined.empty() ? "" : "-") + std::to_string(width);
    return joined + " " + activation;
}

OutputRange Shape::output_range() const
{
    if (activation == "atan") return OutputRange::half_pi;
    return activation == "id" ? OutputRange::unbounded : OutputRange::positive;
}

Network::Network(const Shape& shape, const std::string& norm, const Threads& threads)
    : shape_(shape),
      description_(describe(shape, norm, threads.batch)),
      net_(initVEMKNet(description_.data(), static_cast<int>(description_.size())))
{
    // A step too far shall cost a step, not the process.
    accepted(vemk_quiet(net_.get(), 1), "vemk_quiet");
    accepted(vemk_setpar(net_.get(), threads.count, threads.batch), "vemk_setpar");
    // Column d of a tangent matrix is tangent d; this is how Matrix lies in memory.
    vemk_major(net_.get(), 0);
    size_ = count(static_cast<Eigen::Index>(vemk_numel(net_.get())));
    if (size_ == 0) throw std::runtime_error("the library made no network of " + description_);
}

Matrix Network::outputs(const Vector& w, const Matrix& x) const
{
    Matrix out(x.rows(), shape_.outputs);
    accepted(
        vemk_compute(
            net_.get(), w.data(), size_, x.data(), count(x.rows()), count(x.cols()), 0, out.data()),
        "vemk_compute");
    return out;
}

Matrix Network::residuals(const Vector& w, const Batch& batch) const
{
    Matrix out(batch.y.rows(), batch.y.cols());
    accepted(vemk_residual(net_.get(),
                           w.data(),
                           size_,
                           batch.x.data(),
                           batch.y.data(),
                           count(batch.x.rows()),
                           count(batch.x.cols()),
                           count(batch.y.cols()),
                           out.data()),
             "vemk_residual");
    return out;
}

double Network::value(const Vector& w, const Batch& batch) const
{
    double result = 0.0;
    accepted(vemk_obj(net_.get(),
                      w.data(),
                      size_,
                      batch.x.data(),
                      batch.y.data(),
                      count(batch.x.rows()),
                      count(batch.x.cols()),
                      count(batch.y.cols()),
                      &result),
             "vemk_obj");
    return result;
}

double Network::gradient(const Vector& w, const Batch& batch, Vector& gradient) const
{
    double result = 0.0;
    gradient.resize(size());
    accepted(vemk_g(net_.get(),
                    w.data(),
                    size_,
                    batch.x.data(),
                    batch.y.data(),
                    count(batch.x.rows()),
                    count(batch.x.cols()),
                    count(batch.y.cols()),
                    &result,
                    gradient.data()),
             "vemk_g");
    return result;
}

Vector Network::hessian_times(const Vector& w, const Batch& batch, const Vector& tangent) const
{
    double value = 0.0;
    Vector gradient(size());
    Vector product(size());
    accepted(vemk_Hv(net_.get(),
                     w.data(),
                     size_,
                     tangent.data(),
                     1,
                     batch.x.data(),
                     batch.y.data(),
                     count(batch.x.rows()),
                     count(batch.x.cols()),
                     count(batch.y.cols()),
                     &value,
                     gradient.data(),
                     product.data()),
             "vemk_Hv");
    return product;
}

double Network::hessian(const Vector& w,
                        const Batch& batch,
                        Vector& gradient,
                        Matrix& hessian) const
{
    double result = 0.0;
    const Matrix tangents = Matrix::Identity(size(), size());
    gradient.resize(size());
    hessian.resize(size(), size());
    accepted(vemk_Hv(net_.get(),
                     w.data(),
                     size_,
                     tangents.data(),
                     size_,
                     batch.x.data(),
                     batch.y.data(),
                     count(batch.x.rows()),
                     count(batch.x.cols()),
                     count(batch.y.cols()),
                     &result,
                     gradient.data(),
                     hessian.data()),
             "vemk_Hv");
    return result;
}

Matrix Network::jacobian(const Vector& w, const Batch& batch) const
{
    const Matrix tangents = Matrix::Identity(size(), size());
    Vector normed(batch.y.size());
    Matrix result(batch.y.size(), size());
    accepted(vemk_Jv(net_.get(),
                     w.data(),
                     size_,
                     tangents.data(),
                     size_,
                     batch.x.data(),
                     batch.y.data(),
                     count(batch.x.rows()),
                     count(batch.x.cols()),
                     count(batch.y.cols()),
                     normed.data(),
                     result.data()),
             "vemk_Jv");
    return result;
}

Vector Network::weighted_gradient(const Vector& w, const Batch& batch, const Matrix& u) const
{
    Matrix residual(batch.y.rows(), batch.y.cols());
    Vector result(size());
    accepted(vemk_vJ(net_.get(),
                     w.data(),
                     size_,
                     u.data(),
                     0,
                     batch.x.data(),
                     batch.y.data(),
                     count(batch.x.rows()),
                     count(batch.x.cols()),
                     count(batch.y.cols()),
                     residual.data(),
                     result.data()),
             "vemk_vJ");
    return result;
}

}  // namespace fit
