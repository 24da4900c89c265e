#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "model/aligned_array.h"
#include "support/numbers.h"

using VEMKN::AlignedArray;

namespace {

bool begins_a_cache_line(const AlignedArray& a)
{
    return reinterpret_cast<std::uintptr_t>(a.begin()) % 64 == 0;
}

Numbers numbers_of(const AlignedArray& a)
{
    return Numbers(a.begin(), a.end());
}

}  // namespace

TEST(AlignedArray, StartsEmptyOrWithZerosOrWithACopy)
{
    EXPECT_EQ(0u, AlignedArray().size());
    EXPECT_EQ(bits_of(Numbers(5, 0.0)), bits_of(numbers_of(AlignedArray(5))));
    const Numbers three = {1, 2, 3};
    EXPECT_EQ(bits_of(three), bits_of(numbers_of(AlignedArray(three.data(), 3))));
}

TEST(AlignedArray, BeginsWhereACacheLineDoes)
{
    std::vector<AlignedArray> all;
    for (std::size_t n = 1; n < 200; ++n) {
        all.emplace_back(n);
        all.back()[n - 1] = 1.0;
        EXPECT_TRUE(begins_a_cache_line(all.back())) << n;
    }
    EXPECT_TRUE(begins_a_cache_line(AlignedArray(1'000'000)));
}

TEST(AlignedArray, KeepsItsStorageWhenFewerElementsAreWanted)
{
    AlignedArray a(100);
    const double* const before = a.begin();
    a.set_size(12);
    EXPECT_EQ(12u, a.size());
    a.set_size(100);
    EXPECT_EQ(before, a.begin());
    a.set_size(101);
    EXPECT_EQ(101u, a.size());
    EXPECT_TRUE(begins_a_cache_line(a));
}

TEST(AlignedArray, CopiesAndMovesItsElements)
{
    const Numbers three = {1, 2, 3};
    AlignedArray a(three.data(), 3), b(7);
    b = a;
    EXPECT_EQ(bits_of(three), bits_of(numbers_of(b)));
    EXPECT_NE(&a[0], &b[0]);
    const AlignedArray& same = b;
    b = same;
    EXPECT_EQ(bits_of(three), bits_of(numbers_of(b)));
    b[0] = 10;
    EXPECT_EQ(1.0, a[0]);

    const double* const of_a = a.begin();
    AlignedArray c(std::move(a));
    EXPECT_EQ(of_a, c.begin());
    b = std::move(c);
    EXPECT_EQ(bits_of(three), bits_of(numbers_of(b)));
    b = 4.0;
    EXPECT_EQ(bits_of(Numbers(3, 4.0)), bits_of(numbers_of(b)));
}

TEST(AlignedArray, RefusesMoreThanCanBeAddressedAndStaysAsItIs)
{
    AlignedArray a(3);
    for (const std::size_t n : {SIZE_MAX, SIZE_MAX / 8, std::size_t{PTRDIFF_MAX} / 8}) {
        EXPECT_THROW(a.set_size(n), std::bad_alloc) << n;
    }
    EXPECT_EQ(bits_of(Numbers(3, 0.0)), bits_of(numbers_of(a)));
}
