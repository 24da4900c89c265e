#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include "model/blas.h"
#include "support/numbers.h"

using namespace VEMKN;

namespace {

// A vector of many ones in little memory: one block of it, mapped again and again.
class ManyOnes {
public:
    explicit ManyOnes(std::size_t n) : bytes_((n * sizeof(double) + BLOCK - 1) / BLOCK * BLOCK)
    {
        const int file = memfd_create("ones", 0);
        const std::vector<double> ones(BLOCK / sizeof(double), 1.0);
        if (write(file, ones.data(), BLOCK) != static_cast<ssize_t>(BLOCK)) return;
        void* const area =
            mmap(nullptr, bytes_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (area == MAP_FAILED) return;
        for (std::size_t at = 0; at < bytes_; at += BLOCK) {
            void* const place = static_cast<char*>(area) + at;
            if (mmap(place, BLOCK, PROT_READ, MAP_SHARED | MAP_FIXED, file, 0) != place) return;
        }
        close(file);
        data_ = static_cast<double*>(area);
    }

    ~ManyOnes()
    {
        if (data_ != nullptr) munmap(data_, bytes_);
    }

    ManyOnes(const ManyOnes&) = delete;
    ManyOnes& operator=(const ManyOnes&) = delete;

    const double* data() const { return data_; }

private:
    static constexpr std::size_t BLOCK = std::size_t{1} << 21;

    std::size_t bytes_;
    double* data_ = nullptr;
};

}  // namespace

TEST(Product, OfDimensionsBeyond32BitIntegersIsNotCutShort)
{
    const std::size_t n = (std::size_t{1} << 31) + 3;
    const ManyOnes ones(n);
    ASSERT_NE(nullptr, ones.data());
    double sum = QUIET_NAN;
    product(RowsView(ones.data(), 1, n), RowsView(ones.data(), n, 1), &sum);
    EXPECT_EQ(2147483651.0, sum);
}
