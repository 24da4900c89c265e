#include "fit/network.h"

#include <limits>
#include <span>

namespace vemknfit {
namespace {

std::vector<Eigen::Index> widths_of(Eigen::Index inputs, const std::vector<Eigen::Index>& hidden)
{
    std::vector<Eigen::Index> widths{inputs};
    widths.insert(widths.end(), hidden.begin(), hidden.end());
    widths.push_back(1);
    return widths;
}

vemkn::Network network_of(const std::vector<Eigen::Index>& widths,
                          const std::string& activation,
                          const char* norm,
                          unsigned threads)
{
    // Larger slices cost a network of a few units less; their sums keep the fit the same on every machine.
    constexpr int BATCH = 128;
    const std::vector<unsigned> sizes(widths.begin(), widths.end() - 1);
    vemkn::Network net({.numin = sizes.front(),
                        .numout = 1,
                        .sizes = sizes,
                        .activation = activation,
                        .norm = norm});
    net.set_quiet(true);
    net.set_threads(threads);
    net.set_batch(BATCH);
    return net;
}

std::span<const double> span_of(const Vector& v)
{
    return {v.data(), static_cast<std::size_t>(v.size())};
}

std::span<const double> span_of(const Matrix& m)
{
    return {m.data(), static_cast<std::size_t>(m.size())};
}

Vector vector_of(const std::vector<double>& numbers)
{
    return Eigen::Map<const Vector>(numbers.data(), static_cast<Eigen::Index>(numbers.size()));
}

}  // namespace

Matrix gradients_of(const vemkn::Network& network,
                    const Vector& w,
                    const Matrix& inputs,
                    const Vector& targets)
{
    const Matrix identity = Matrix::Identity(w.size(), w.size());
    const auto all =
        network.jacobian_product(span_of(w), span_of(identity), span_of(inputs), span_of(targets));
    return Eigen::Map<const Matrix>(all.products.data(), inputs.rows(), w.size());
}

Network::Network(Eigen::Index inputs,
                 const std::vector<Eigen::Index>& hidden,
                 const std::string& activation,
                 unsigned threads)
    : widths_(widths_of(inputs, hidden)),
      likelihood_(network_of(widths_, activation, "sum_log_dnorm_fat", threads)),
      sum_(network_of(widths_, activation, "sum", threads)),
      is_weight_(Vector::Ones(size()))
{
    Eigen::Index at = 0;
    for (std::size_t layer = 0; layer + 1 < widths_.size(); ++layer) {
        output_layer_ = at;
        is_weight_.segment(at, widths_[layer + 1]).setZero();
        at += widths_[layer + 1] * (1 + widths_[layer]);
    }
}

Vector Network::outputs(const Vector& w, const Matrix& inputs) const
{
    return vector_of(likelihood_.compute(span_of(w), span_of(inputs)).values);
}

double Network::likelihood(const Vector& w,
                           const Matrix& inputs,
                           const Vector& targets,
                           Vector& gradient) const
{
    const vemkn::Gradient mean =
        likelihood_.value_and_gradient(span_of(w), span_of(inputs), span_of(targets));
    const double rows = static_cast<double>(targets.size());
    gradient = rows * vector_of(mean.gradient);
    return mean.finite ? rows * mean.value : std::numeric_limits<double>::infinity();
}

Matrix Network::likelihood_hessian(const Vector& w,
                                   const Matrix& inputs,
                                   const Vector& targets) const
{
    const Matrix identity = Matrix::Identity(size(), size());
    const vemkn::HessianProduct mean = likelihood_.hessian_product(
        span_of(w), span_of(identity), span_of(inputs), span_of(targets));
    const double rows = static_cast<double>(targets.size());
    return rows * Eigen::Map<const Matrix>(mean.products.data(), size(), size());
}

Vector Network::gradient(const Vector& w, const Matrix& inputs, const Vector& u) const
{
    const Vector zeros = Vector::Zero(u.size());
    return vector_of(
        sum_.product_jacobian(span_of(w), span_of(u), span_of(inputs), span_of(zeros)).products);
}

Matrix Network::likelihood_gradients(const Vector& w,
                                     const Matrix& inputs,
                                     const Vector& targets) const
{
    return gradients_of(likelihood_, w, inputs, targets);
}

Matrix Network::jacobian(const Vector& w, const Matrix& inputs) const
{
    return gradients_of(sum_, w, inputs, Vector::Zero(inputs.rows()));
}

}  // namespace vemknfit
