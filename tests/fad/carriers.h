#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>

#include "fad/ad.h"
#include "support/numbers.h"

// Carriers as the tests make and compare them.

using yafad::MatrixCarrier;
using yafad::VectorCarrier;
using Vector = std::valarray<double>;
using Matrix = VEMKN::MatrixTemplate<double>;
using Scalar = yafad::FO::Dynamic::Active<1>;

// Numbers of tangents that every operation is tried with: none, one, and more than one.
inline constexpr std::size_t TANGENTS[] = {0, 1, 3};

// The two process-wide counts, for a scope.
class TangentCounts {
public:
    TangentCounts(std::size_t for_carriers, std::size_t for_scalars)
        : matrices_before_(yafad::tangent_count), scalars_before_(yafad::scalar_tangent_count)
    {
        yafad::set_tangent_counts(for_carriers, for_scalars);
    }

    explicit TangentCounts(std::size_t n) : TangentCounts(n, n) {}

    ~TangentCounts() { yafad::set_tangent_counts(matrices_before_, scalars_before_); }

    TangentCounts(const TangentCounts&) = delete;
    TangentCounts& operator=(const TangentCounts&) = delete;

private:
    std::uint64_t matrices_before_;
    std::uint64_t scalars_before_;
};

inline Vector vector_of(const Numbers& numbers)
{
    Vector vector(0.0, numbers.size());
    std::copy(numbers.begin(), numbers.end(), std::begin(vector));
    return vector;
}

// A carrier of that value with these derivatives.
inline VectorCarrier vector_carrier(const Numbers& value, const std::vector<Numbers>& derivatives)
{
    VectorCarrier x(vector_of(value), derivatives.size());
    for (std::size_t k = 0; k < derivatives.size(); ++k) {
        x.derivatives[k] = vector_of(derivatives[k]);
    }
    return x;
}

// A carrier of that value with n tangents of random derivatives.
inline VectorCarrier vector_carrier(Random& random, const Numbers& value, std::size_t n)
{
    std::vector<Numbers> derivatives;
    for (std::size_t k = 0; k < n; ++k) derivatives.push_back(random.list(value.size()));
    return vector_carrier(value, derivatives);
}

inline Matrix random_matrix(Random& random, std::size_t rows, std::size_t cols)
{
    return Matrix(random.list(rows * cols).data(), rows, cols);
}

inline MatrixCarrier random_matrix_carrier(Random& random,
                                           std::size_t rows,
                                           std::size_t cols,
                                           std::size_t n)
{
    MatrixCarrier A(random_matrix(random, rows, cols), n);
    for (Matrix& derivative : A.derivatives) derivative = random_matrix(random, rows, cols);
    return A;
}

// A carrier of that shape full of leftovers, with another number of tangents: what a result may have been before.
inline MatrixCarrier leftover(std::size_t rows, std::size_t cols)
{
    MatrixCarrier A(Matrix(rows, cols), 2);
    A.value.store() = QUIET_NAN;
    for (Matrix& derivative : A.derivatives) derivative.store() = QUIET_NAN;
    return A;
}

inline const Vector& store_of(const Vector& v)
{
    return v;
}

inline const Vector& store_of(const Matrix& m)
{
    return m.store();
}

// The same number to the bit; any NaN is like any other.
inline bool same(double a, double b)
{
    return std::isnan(a) ? std::isnan(b) : bits(a) == bits(b);
}

template <class List, class Expected>
void expect_same(const List& computed, const Expected& expected, const std::string& what)
{
    ASSERT_EQ(expected.size(), computed.size()) << what;
    for (std::size_t i = 0; i < expected.size(); ++i) {
        EXPECT_TRUE(same(computed[i], expected[i]))
            << what << " " << i << ": " << computed[i] << " is not " << expected[i];
    }
}

template <class T>
void expect_same_carrier(const yafad::fad1<T>& computed, const yafad::fad1<T>& expected)
{
    expect_same(store_of(computed.value), store_of(expected.value), "value");
    ASSERT_EQ(expected.tangents(), computed.tangents());
    for (std::size_t k = 0; k < expected.tangents(); ++k) {
        expect_same(store_of(computed.derivatives[k]),
                    store_of(expected.derivatives[k]),
                    "derivative " + std::to_string(k) + ", element");
    }
}

inline void expect_shape(const Matrix& A, std::size_t rows, std::size_t cols)
{
    EXPECT_EQ(rows, A.rows());
    EXPECT_EQ(cols, A.cols());
    EXPECT_EQ(rows * cols, A.size());
}

// The value and every derivative have that shape.
inline void expect_shape(const MatrixCarrier& A, std::size_t rows, std::size_t cols)
{
    expect_shape(A.value, rows, cols);
    for (const Matrix& derivative : A.derivatives) expect_shape(derivative, rows, cols);
}
