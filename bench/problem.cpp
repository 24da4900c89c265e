#include "problem.h"

#include <cmath>
#include <random>
#include <sstream>

namespace bench {

const std::vector<Shape>& shapes()
{
    static const std::vector<Shape> all = {
        {"2-5-1", {2, 5, 1}, 100},
        {"8-16-16-1", {8, 16, 16, 1}, 1000},
        {"20-64-64-4", {20, 64, 64, 4}, 10000},
        {"100-256-256-10", {100, 256, 256, 10}, 10000},
        {"10-32-1", {10, 32, 1}, 200000},
    };
    return all;
}

std::vector<double> uniform(std::size_t n, unsigned seed)
{
    std::mt19937_64 engine(seed);
    std::uniform_real_distribution<double> draw(-1.0, 1.0);
    std::vector<double> numbers(n);
    for (double& number : numbers) number = draw(engine);
    return numbers;
}

namespace {

std::string description(const Shape& shape, const std::string& activation, const std::string& norm)
{
    const std::size_t layers = shape.widths.size() - 1;
    std::ostringstream text;
    text << shape.widths.front() << ' ' << shape.widths.back() << ' ' << layers << " 1 32";
    for (std::size_t i = 0; i < layers; ++i) text << ' ' << shape.widths[i];
    text << ' ' << activation << ' ' << norm;
    return text.str();
}

}  // namespace

Problem::Problem(const Shape& a_shape, const std::string& activation, const std::string& norm)
    : shape(a_shape),
      text(description(shape, activation, norm)),
      net(initVEMKNet(text.data(), static_cast<int>(text.size()))),
      nw(static_cast<unsigned>(vemk_numel(net))),
      nin(shape.widths.front()),
      nout(shape.widths.back()),
      rows(shape.rows),
      w(uniform(nw, 1)),
      x(uniform(std::size_t{rows} * nin, 2)),
      y(std::size_t{rows} * nout)
{
    // Pre-activations of order one whatever the width, as in a fitted network.
    const double scale = 1.5 / std::sqrt(static_cast<double>(shape.widths[1]));
    for (double& weight : w) weight *= scale;
    std::vector<double> other = uniform(nw, 3);
    for (std::size_t i = 0; i < nw; ++i) other[i] = w[i] + 0.1 * scale * other[i];
    vemk_compute(net, other.data(), nw, x.data(), rows, nin, 0, y.data());
    const std::vector<double> noise = uniform(y.size(), 4);
    for (std::size_t i = 0; i < y.size(); ++i) y[i] += (i % 50 == 0 ? 5.0 : 0.5) * noise[i];
}

Problem::~Problem()
{
    releaseVEMKNet(net);
}

}  // namespace bench
