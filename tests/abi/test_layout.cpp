#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>

#include "vemkn_errors.h"

// The classes that a C++ host and the library share have one layout on every processor.

namespace {

using Scalar = yafad::FO::Dynamic::Active<1>;
using Division = yafad::Discontinuity<Scalar>;

template <class Part>
std::ptrdiff_t place(const void* whole, const Part& part)
{
    return reinterpret_cast<const char*>(&part) - static_cast<const char*>(whole);
}

}  // namespace

TEST(Layout, OfTheScalarCarrierIsTheSameEverywhere)
{
    const Scalar scalar;
    EXPECT_EQ(0, place(&scalar, scalar.N));
    EXPECT_EQ(8, place(&scalar, scalar.value));
    EXPECT_EQ(16, place(&scalar, scalar.derivatives));
    EXPECT_EQ(32u, sizeof scalar);
}

TEST(Layout, OfTheErrorsIsTheSameEverywhere)
{
    const yafad::Error error("file", 1, 2, "text");
    EXPECT_EQ(8, place(&error, error.file));
    EXPECT_EQ(40, place(&error, error.line));
    EXPECT_EQ(44, place(&error, error.category));
    EXPECT_EQ(48, place(&error, error.message));
    EXPECT_EQ(80u, sizeof error);
    // Three references follow.
    EXPECT_EQ(80u + 3 * sizeof(void*), sizeof(Division));
}
