#pragma once

#include <cmath>
#include <valarray>

#include "fad/active.h"
#include "model/matrix.h"
#include "vemkn.h"

namespace yafad {

using VEMKN::MatrixTemplate;

// A value with its derivatives along N tangents, each of the value's shape. T is std::valarray<double> or
// MatrixTemplate<double>. A carrier owns its storage and is copied by value.
template <class T>
struct fad1 {
    T value;
    std::valarray<T> derivatives;

    fad1() = default;
    fad1(fad1&&) noexcept = default;
    fad1& operator=(fad1&&) noexcept = default;

    // Here and below derivatives are filled in once the carrier owns them: a std::valarray that fails to copy an element
    // loses its storage.
    fad1(const fad1& other) : value(other.value), derivatives(other.tangents())
    {
        for (std::size_t k = 0; k < tangents(); ++k) take(derivatives[k], other.derivatives[k]);
    }

    fad1& operator=(const fad1& other)
    {
        take(value, other.value);
        set_tangents(other.tangents());
        for (std::size_t k = 0; k < tangents(); ++k) take(derivatives[k], other.derivatives[k]);
        return *this;
    }

    // A constant with n tangents. Deliberate: a derivative is the value times 0.0, not a literal zero, so that an
    // infinite or NaN entry has NaN derivatives.
    fad1(const T& v, unsigned long n) : value(v), derivatives(n)
    {
        if (n == 0) return;
        const T zero = zero_times(v);
        for (T& derivative : derivatives) take(derivative, zero);
    }

    // A constant with as many tangents as the process counts (fad/tangent_counts.h).
    explicit fad1(const T& v) : fad1(v, tangent_count) {}

    // The vector of n copies of x with as many tangents: here n is the length.
    fad1(const double& x, unsigned long n) requires(std::is_same_v<T, std::valarray<double>>)
        : fad1(T(x, n), tangent_count)
    {
    }

    std::size_t tangents() const { return derivatives.size(); }

    std::size_t size() const { return value.size(); }

    std::size_t rows() const { return value.rows(); }

    std::size_t cols() const { return value.cols(); }

    // Takes another number of tangents; the derivatives are then without contents.
    void set_tangents(std::size_t n) { VEMKN::set_size(derivatives, n); }

    // The entries that the mask selects, of the value and of every derivative.
    fad1 operator[](const std::valarray<bool>& mask) const
        requires(std::is_same_v<T, std::valarray<double>>)
    {
        fad1 part;
        part.value = value[mask];
        part.set_tangents(tangents());
        for (std::size_t k = 0; k < tangents(); ++k) part.derivatives[k] = derivatives[k][mask];
        return part;
    }

    // The reverse: the entries that the mask selects take those of part, in ascending order.
    void scatter(const std::valarray<bool>& mask,
                 const fad1& part) requires(std::is_same_v<T, std::valarray<double>>)
    {
        value[mask] = part.value;
        for (std::size_t k = 0; k < tangents(); ++k) derivatives[k][mask] = part.derivatives[k];
    }

private:
    static void take(std::valarray<double>& to, const std::valarray<double>& from)
    {
        VEMKN::assign(to, from);
    }

    static void take(MatrixTemplate<double>& to, const MatrixTemplate<double>& from) { to = from; }

    static std::valarray<double> zero_times(const std::valarray<double>& v) { return v * 0.0; }

    static MatrixTemplate<double> zero_times(const MatrixTemplate<double>& m)
    {
        MatrixTemplate<double> zero = m;
        zero.store() *= 0.0;
        return zero;
    }
};

using VectorCarrier = fad1<std::valarray<double>>;
using MatrixCarrier = fad1<MatrixTemplate<double>>;

// f(value of every argument), then f(derivative k of every argument) for each tangent of the first one: how everything
// linear acts on carriers.
template <class Linear, class First, class... Rest>
void each_part(const Linear& f, First&& first, Rest&&... rest)
{
    f(first.value, rest.value...);
    for (std::size_t k = 0; k < first.tangents(); ++k) {
        f(first.derivatives[k], rest.derivatives[k]...);
    }
}

using VEMKN::take_shape;

// y takes the shape and the number of tangents of x; its contents are left to the caller.
template <class T>
void take_shape(const fad1<T>& x, fad1<T>& y)
{
    y.set_tangents(x.tangents());
    take_shape(x.value, y.value);
    for (T& derivative : y.derivatives) take_shape(x.value, derivative);
}

}  // namespace yafad

template <class T>
struct VEMKN::PlainOf<yafad::fad1<T>> {
    using type = T;
};
