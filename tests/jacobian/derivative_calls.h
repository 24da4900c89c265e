#pragma once

#include <gtest/gtest.h>

#include <valarray>

#include "fad/differences.h"
#include "support/network.h"
#include "support/numbers.h"
#include "support/plain_network.h"
#include "vemkn.h"

// The gradient and the four derivative products as the tests call them, through the C interface.

// What output arrays hold before a call, and must still hold where it has nothing to write.
inline constexpr double UNTOUCHED = -7.25e77;

// An output array with room to spare: a call that writes beyond its end is found out.
class Output {
public:
    explicit Output(std::size_t n) : n_(n), all_(n + SPARE, UNTOUCHED) {}

    double* data() { return all_.data(); }

    bool untouched() const { return first_touched(0) == all_.size(); }

    // The first n values; the rest must be as it was.
    Numbers values() const
    {
        EXPECT_EQ(all_.size(), first_touched(n_)) << "an array of length " << n_;
        return Numbers(all_.begin(), all_.begin() + static_cast<std::ptrdiff_t>(n_));
    }

private:
    static constexpr std::size_t SPARE = 8;

    std::size_t first_touched(std::size_t i) const
    {
        while (i < all_.size() && all_[i] == UNTOUCHED) ++i;
        return i;
    }

    std::size_t n_;
    Numbers all_;
};

// Row order for a scope: tangents and products stand one after the other. Otherwise they are interleaved.
class RowOrder {
public:
    explicit RowOrder(int value = 1) { vemk_major(nullptr, value); }

    ~RowOrder() { vemk_major(nullptr, 0); }

    RowOrder(const RowOrder&) = delete;
    RowOrder& operator=(const RowOrder&) = delete;
};

// A network with weights, and a batch for it.
struct Problem {
    plain::Network shape;
    unsigned nrows = 0;
    unsigned xcols = 0;
    Numbers w, x, y;

    // w in the network's flat order, x and y row by row, all random.
    void fill(Random& random)
    {
        w = random.list(shape.numel());
        x = random.list(std::size_t{nrows} * xcols);
        y = random.list(elements());
    }

    unsigned nw() const { return static_cast<unsigned>(w.size()); }

    unsigned ycols() const { return shape.numout; }

    std::size_t elements() const { return std::size_t{nrows} * shape.numout; }
};

// Five rows of numin columns through one hidden layer to two outputs.
inline Problem small_problem(unsigned numin,
                             unsigned hidden,
                             const char* activation,
                             const char* norm)
{
    Random random(1);
    Problem p;
    p.shape = {.numin = numin,
               .numout = 2,
               .sizes = {numin, hidden},
               .activation = activation,
               .norm = norm};
    p.nrows = 5;
    p.xcols = numin;
    p.fill(random);
    return p;
}

struct Gradient {
    double value = UNTOUCHED;
    Numbers gradient;
};

struct HessianProducts : Gradient {
    Numbers hv;
};

struct JacobianProducts {
    Numbers f, jac;
};

struct TransposedProducts {
    Numbers r, g;
};

inline Gradient call_g(VEMKNInfo* net, const Problem& p)
{
    Gradient result;
    Output gradient(p.nw());
    EXPECT_EQ(0,
              vemk_g(net,
                     p.w.data(),
                     p.nw(),
                     p.x.data(),
                     p.y.data(),
                     p.nrows,
                     p.xcols,
                     p.ycols(),
                     &result.value,
                     gradient.data()));
    result.gradient = gradient.values();
    return result;
}

inline HessianProducts call_Hv(VEMKNInfo* net, const Problem& p, const Numbers& v, unsigned nv)
{
    HessianProducts result;
    Output gradient(p.nw()), hv(std::size_t{p.nw()} * nv);
    EXPECT_EQ(0,
              vemk_Hv(net,
                      p.w.data(),
                      p.nw(),
                      v.data(),
                      nv,
                      p.x.data(),
                      p.y.data(),
                      p.nrows,
                      p.xcols,
                      p.ycols(),
                      &result.value,
                      gradient.data(),
                      hv.data()));
    result.gradient = gradient.values();
    result.hv = hv.values();
    return result;
}

inline JacobianProducts call_Jv(VEMKNInfo* net, const Problem& p, const Numbers& v, unsigned nv)
{
    Output f(p.elements()), jac(p.elements() * nv);
    EXPECT_EQ(0,
              vemk_Jv(net,
                      p.w.data(),
                      p.nw(),
                      v.data(),
                      nv,
                      p.x.data(),
                      p.y.data(),
                      p.nrows,
                      p.xcols,
                      p.ycols(),
                      f.data(),
                      jac.data()));
    return {f.values(), jac.values()};
}

inline TransposedProducts call_vJ(VEMKNInfo* net, const Problem& p, const Numbers& u)
{
    Output r(p.elements()), g(p.nw());
    // The argument after u is not looked at.
    EXPECT_EQ(0,
              vemk_vJ(net,
                      p.w.data(),
                      p.nw(),
                      u.data(),
                      ~std::uint64_t{0},
                      p.x.data(),
                      p.y.data(),
                      p.nrows,
                      p.xcols,
                      p.ycols(),
                      r.data(),
                      g.data()));
    return {r.values(), g.values()};
}

inline TransposedProducts call_vJ_vec(VEMKNInfo* net,
                                      const Problem& p,
                                      const Numbers& u,
                                      unsigned k)
{
    Output r(p.elements()), g(std::size_t{k} * p.nw());
    EXPECT_EQ(0,
              vemk_vJ_vec(net,
                          p.w.data(),
                          p.nw(),
                          u.data(),
                          k,
                          p.x.data(),
                          p.y.data(),
                          p.nrows,
                          p.xcols,
                          p.ycols(),
                          r.data(),
                          g.data()));
    return {r.values(), g.values()};
}

// The n x n identity: the same in both storage orders.
inline Numbers identity(std::size_t n)
{
    Numbers v(n * n);
    for (std::size_t i = 0; i < n; ++i) v[i * n + i] = 1.0;
    return v;
}

// Entry i of tangent d, of nv tangents of n entries each, in the order of the moment.
inline std::size_t place(std::size_t i, std::size_t d, std::size_t n, std::size_t nv)
{
    return vemkn_rowmajor != 0 ? d * n + i : i * nv + d;
}

// Tangent d out of nv tangents of n entries each.
inline Numbers tangent(const Numbers& all, std::size_t d, std::size_t n, std::size_t nv)
{
    Numbers one(n);
    for (std::size_t i = 0; i < n; ++i) one[i] = all[place(i, d, n, nv)];
    return one;
}

// The n x nv matrix of numbers in column order, re-stored in row order.
inline Numbers in_row_order(const Numbers& columns, std::size_t n, std::size_t nv)
{
    Numbers rows(columns.size());
    for (std::size_t i = 0; i < n; ++i) {
        for (std::size_t d = 0; d < nv; ++d) rows[d * n + i] = columns[i * nv + d];
    }
    return rows;
}

inline long double dot(const Numbers& a, const Numbers& b)
{
    long double sum = 0;
    for (std::size_t i = 0; i < a.size(); ++i) sum += static_cast<long double>(a[i]) * b[i];
    return sum;
}

inline double largest(const Numbers& numbers)
{
    double size = 0;
    for (const double x : numbers) size = std::max(size, std::fabs(x));
    return size;
}

// The Jacobian of the element norms with respect to the weights, from complex steps: [element * nw + weight].
inline plain::Reals plain_jacobian(const Problem& p)
{
    plain::Reals J(p.elements() * p.nw());
    std::vector<plain::Complex> at(p.w.begin(), p.w.end());
    for (std::size_t k = 0; k < at.size(); ++k) {
        const plain::Complex before = at[k];
        at[k] += plain::Complex(0, plain::STEP);
        const auto r = p.shape.residuals(at, p.x, p.y, p.nrows, p.xcols);
        for (std::size_t e = 0; e < r.size(); ++e) {
            J[e * at.size() + k] = plain::element_norm(p.shape.norm, r[e]).imag() / plain::STEP;
        }
        at[k] = before;
    }
    return J;
}

// The Hessian of the objective times a tangent: differences of gradients that come from complex steps. Along a
// tangent of several units a network bends more than its functions do one by one, so the step is shorter than theirs.
inline plain::Reals plain_hessian_product(const Problem& p, const Numbers& v, int exponent = -11)
{
    const plain::Reals cotangent = p.shape.mean(p.nrows);
    const auto gradient = [&](long double t) {
        std::vector<plain::Complex> at;
        for (std::size_t k = 0; k < p.w.size(); ++k) at.emplace_back(p.w[k] + t * v[k]);
        plain::Reals g;
        for (plain::Complex& parameter : at) {
            const plain::Complex before = parameter;
            parameter += plain::Complex(0, plain::STEP);
            g.push_back(p.shape.weighted(at, p.x, p.y, p.nrows, p.xcols, cotangent).imag() /
                        plain::STEP);
            parameter = before;
        }
        return std::valarray<long double>(g.data(), g.size());
    };
    const std::valarray<long double> product = derivative(gradient, 0.0L, exponent);
    return plain::Reals(std::begin(product), std::end(product));
}

inline constexpr const char* ACTIVATIONS[] = {
    "softplus", "softmax", "softplus_shifted", "atan", "relu", "id", "unknown"};
inline constexpr const char* NORMS[] = {"sum", "sum_log_dnorm_fat"};

// Problem number i of a family: every activation, norm and number of passes in turn, the rest random.
inline Problem random_problem(unsigned i)
{
    Random random(1000 + i);
    Problem p;
    p.shape.activation = ACTIVATIONS[i % std::size(ACTIVATIONS)];
    p.shape.norm = NORMS[i / 7 % std::size(NORMS)];
    p.shape.nmult = 1 + i / 14 % 3;
    p.shape.numout = 1 + random.below(3);
    p.shape.sizes.resize(2 + random.below(3));
    for (unsigned& size : p.shape.sizes) size = 1 + random.below(6);
    // Chained passes need a last hidden width like that of the input.
    if (p.shape.nmult > 1) p.shape.sizes.back() = p.shape.sizes.front();
    // Sometimes fewer inputs than the first layer is wide, and sometimes fewer columns than inputs.
    p.shape.numin = 1 + random.below(p.shape.sizes.front());
    p.xcols = random.below(4) == 0 ? random.below(p.shape.numin + 1) : p.shape.numin;
    p.nrows = 1 + random.below(9);
    p.fill(random);
    // Some residuals in the tail of the likelihood.
    for (double& y : p.y) {
        if (random.below(3) == 0) y += random.below(2) == 0 ? 7.0 : -7.0;
    }
    return p;
}

// For messages: what a failing random problem was.
inline std::string described(const Problem& p)
{
    return "network \"" + p.shape.text() + "\", " + std::to_string(p.nrows) + " rows of " +
           std::to_string(p.xcols);
}
