#include <gtest/gtest.h>
#include <malloc.h>

#include "support/all_entries.h"

// Of LeakSanitizer, in programs that have it: whether something leaked up to now.
// NOLINTNEXTLINE(bugprone-reserved-identifier): its name
extern "C" __attribute__((weak)) int __lsan_do_recoverable_leak_check();

namespace {

void create_and_release(int times)
{
    // A network, one with an unknown norm, none, and one that has been used.
    const std::string texts[] = {usual_network().text(), "3 2 2 1 8 3 4 relu sum", "2 1", ""};
    static const Request q = random_request(usual_network(), 9, 5, 1, 1);
    for (int i = 0; i < times; ++i) {
        const std::string& text = texts[i % 4];
        VEMKNInfo* const net = initVEMKNet(text.data(), static_cast<int>(text.size()));
        if (i % 400 == 0) all_bits(net, q);
        releaseVEMKNet(net);
    }
}

}  // namespace

TEST(LeakFault, TenThousandCreationsAndReleases_NoLeak)
{
    testing::internal::CaptureStderr();
    create_and_release(500);
    const std::size_t before = mallinfo2().uordblks;
    create_and_release(10'000);
    const std::size_t after = mallinfo2().uordblks;
    testing::internal::GetCapturedStderr();
    if (__lsan_do_recoverable_leak_check != nullptr) {
        EXPECT_EQ(0, __lsan_do_recoverable_leak_check());
    } else {
        // Five bytes a handle, less than any of its parts has: the C library keeps that much for its own use.
        EXPECT_LE(after, before + 50'000);
    }
}
