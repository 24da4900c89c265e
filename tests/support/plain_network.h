#pragma once

#include <complex>
#include <string>
#include <vector>

#include "support/numbers.h"

// The network as plain loops over long double: the truth that the library is checked against.
//
// Derivatives come from complex steps, so that no formula of a derivative occurs here: for a function that is real on
// real arguments, f(a + ih) = f(a) + ih f'(a) + O(h^2), and with h = 1e-200 the imaginary part over h is f'(a) to
// rounding, without the cancellation of a difference.

namespace plain {

using Real = long double;
using Complex = std::complex<long double>;
using Reals = std::vector<Real>;

inline constexpr Real STEP = 1e-200L;

inline Real real_part(Real x)
{
    return x;
}

inline Real real_part(const Complex& x)
{
    return x.real();
}

template <class T>
T activation(const std::string& name, const T& z)
{
    using std::atan;
    using std::exp;
    using std::log;
    if (name == "id") return z;
    if (name == "atan") return atan(z);
    if (name == "relu") return real_part(z) < 0 ? T(0) : z;
    return real_part(z) < 300 ? log(T(1) + exp(z)) : z;
}

// One element of the objective.
template <class T>
T element_norm(const std::string& name, const T& r)
{
    using std::log;
    if (name == "sum") return r;
    constexpr Real GAMMA = 0.0004785973257525766L;
    constexpr Real PI = 3.14159265358979323846264338327950288L;
    constexpr Real LOG_DENSITY_AT_0 = 0.179673755463437060L;
    if (std::fabs(real_part(r)) < 2) return T(4.5L) * r * r;
    return T(LOG_DENSITY_AT_0 - std::log(GAMMA) + std::log(PI)) + log(r * r + T(GAMMA * GAMMA));
}

struct Network {
    unsigned numin = 1;
    unsigned numout = 1;
    unsigned nmult = 1;
    std::vector<unsigned> sizes;
    std::string activation = "softplus";
    std::string norm = "sum";

    std::string text(unsigned batch = 8) const
    {
        std::string words;
        for (const std::size_t n : {std::size_t{numin},
                                    std::size_t{numout},
                                    sizes.size(),
                                    std::size_t{nmult},
                                    std::size_t{batch}}) {
            words += std::to_string(n) + " ";
        }
        for (const unsigned s : sizes) words += std::to_string(s) + " ";
        return words + activation + " " + norm;
    }

    std::size_t layers() const { return sizes.size(); }

    std::size_t rows(std::size_t layer) const
    {
        return std::size_t{sizes[layer]} * (layer + 1 == layers() ? nmult : 1);
    }

    std::size_t cols(std::size_t layer) const
    {
        return layer + 1 == layers() ? numout : sizes[layer + 1];
    }

    std::size_t numel() const
    {
        std::size_t n = 0;
        for (std::size_t i = 0; i < layers(); ++i) n += cols(i) + rows(i) * cols(i);
        return n;
    }

    // Where the biases of a layer begin in the flat vector; its weights follow them.
    std::size_t offset(std::size_t layer) const
    {
        std::size_t n = 0;
        for (std::size_t i = 0; i < layer; ++i) n += cols(i) + rows(i) * cols(i);
        return n;
    }

    // Outputs for one row of inputs.
    template <class T>
    std::vector<T> outputs_of_row(const std::vector<T>& w, const double* x, std::size_t ncols) const
    {
        std::vector<T> h(rows(0), T(0));
        for (std::size_t c = 0; c < ncols; ++c) h[c] = T(x[c]);

        std::vector<T> side_by_side;
        for (unsigned pass = 0; pass < nmult; ++pass) {
            for (std::size_t i = 0; i + 1 < layers(); ++i) h = layer(w, i, h);
            side_by_side.insert(side_by_side.end(), h.begin(), h.end());
        }
        return layer(w, layers() - 1, side_by_side);
    }

    // All outputs of a batch, row by row.
    template <class T>
    std::vector<T> outputs(const std::vector<T>& w,
                           const Numbers& x,
                           std::size_t nrows,
                           std::size_t ncols) const
    {
        std::vector<T> all;
        for (std::size_t r = 0; r < nrows; ++r) {
            const std::vector<T> row = outputs_of_row(w, x.data() + r * ncols, ncols);
            all.insert(all.end(), row.begin(), row.end());
        }
        return all;
    }

    Reals outputs(const Numbers& w, const Numbers& x, std::size_t nrows, std::size_t ncols) const
    {
        return outputs(Reals(w.begin(), w.end()), x, nrows, ncols);
    }

    template <class T>
    std::vector<T> residuals(const std::vector<T>& w,
                             const Numbers& x,
                             const Numbers& y,
                             std::size_t nrows,
                             std::size_t ncols) const
    {
        std::vector<T> r = outputs(w, x, nrows, ncols);
        for (std::size_t i = 0; i < r.size(); ++i) r[i] -= T(y[i]);
        return r;
    }

    Reals residuals(const Numbers& w,
                    const Numbers& x,
                    const Numbers& y,
                    std::size_t nrows,
                    std::size_t ncols) const
    {
        return residuals(Reals(w.begin(), w.end()), x, y, nrows, ncols);
    }

    Reals element_norms(const Numbers& w,
                        const Numbers& x,
                        const Numbers& y,
                        std::size_t nrows,
                        std::size_t ncols) const
    {
        Reals r = residuals(w, x, y, nrows, ncols);
        for (Real& value : r) value = element_norm(norm, value);
        return r;
    }

    // Sum over the elements of cotangent[e] times the norm of residual e.
    template <class T>
    T weighted(const std::vector<T>& w,
               const Numbers& x,
               const Numbers& y,
               std::size_t nrows,
               std::size_t ncols,
               const Reals& cotangent) const
    {
        const std::vector<T> r = residuals(w, x, y, nrows, ncols);
        T s(0);
        for (std::size_t i = 0; i < r.size(); ++i) s += T(cotangent[i]) * element_norm(norm, r[i]);
        return s;
    }

    // Derivative of weighted() with respect to every parameter.
    Reals weighted_gradient(const Numbers& w,
                            const Numbers& x,
                            const Numbers& y,
                            std::size_t nrows,
                            std::size_t ncols,
                            const Reals& cotangent) const
    {
        std::vector<Complex> at(w.begin(), w.end());
        Reals gradient;
        for (Complex& parameter : at) {
            const Complex before = parameter;
            parameter += Complex(0, STEP);
            gradient.push_back(weighted(at, x, y, nrows, ncols, cotangent).imag() / STEP);
            parameter = before;
        }
        return gradient;
    }

    // The cotangent that makes the objective of the weighted sum.
    Reals mean(std::size_t nrows) const
    {
        const std::size_t n = nrows * numout;
        return Reals(n, 1.0L / static_cast<Real>(n));
    }

    Real objective(const Numbers& w,
                   const Numbers& x,
                   const Numbers& y,
                   std::size_t nrows,
                   std::size_t ncols) const
    {
        return weighted(Reals(w.begin(), w.end()), x, y, nrows, ncols, mean(nrows));
    }

    Reals gradient(const Numbers& w,
                   const Numbers& x,
                   const Numbers& y,
                   std::size_t nrows,
                   std::size_t ncols) const
    {
        return weighted_gradient(w, x, y, nrows, ncols, mean(nrows));
    }

private:
    template <class T>
    std::vector<T> layer(const std::vector<T>& w, std::size_t i, const std::vector<T>& h) const
    {
        const T* const b = w.data() + offset(i);
        const T* const W = b + cols(i);
        std::vector<T> out(cols(i));
        for (std::size_t c = 0; c < cols(i); ++c) {
            T z = b[c];
            for (std::size_t k = 0; k < h.size(); ++k) z += h[k] * W[k * cols(i) + c];
            out[c] = plain::activation(activation, z);
        }
        return out;
    }
};

}  // namespace plain
