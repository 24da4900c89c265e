#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/time.h>
#include <unistd.h>

#include <csignal>
#include <cstring>

#include "support/all_entries.h"
#include "support/size.h"

// Arrays that end where memory ends, arrays that lie askew, and a clock that interrupts calls.

namespace {

// How many values each array of a call has: w, x, y, v, and the three places of results.
struct Lengths {
    std::size_t w, x, y, v, value, array, products;
};

Lengths lengths_of(const AnyEntry& entry, const Call& c)
{
    const bool by_weight =
        entry.call == entry_points::Hv.call || entry.call == entry_points::Jv.call;
    const std::size_t vectors = entry.call == entry_points::vJ.call ? 1 : c.nv;
    const ResultSizes out = entry.sizes(c);
    return {c.nw,
            std::size_t{c.nrows} * c.xcols,
            c.elements(),
            vectors * (by_weight ? c.nw : c.elements()),
            out.value,
            out.array,
            out.products};
}

// n doubles next to a page that nobody may touch, behind them or before them.
class AtThePageEnd {
public:
    AtThePageEnd(const double* values, std::size_t n, bool guard_behind)
        : page_(static_cast<std::size_t>(sysconf(_SC_PAGESIZE))),
          inside_((n * sizeof(double) / page_ + 1) * page_)
    {
        const auto flags = MAP_PRIVATE | MAP_ANONYMOUS;
        all_ = static_cast<char*>(mmap(nullptr, inside_ + 2 * page_, PROT_NONE, flags, -1, 0));
        mprotect(all_ + page_, inside_, PROT_READ | PROT_WRITE);
        void* const from = all_ + page_ + (guard_behind ? inside_ - n * sizeof(double) : 0);
        begin_ = static_cast<double*>(from);
        if (values != nullptr) std::copy_n(values, n, begin_);
    }

    ~AtThePageEnd() { munmap(all_, inside_ + 2 * page_); }

    AtThePageEnd(const AtThePageEnd&) = delete;
    AtThePageEnd& operator=(const AtThePageEnd&) = delete;

    double* begin() const { return begin_; }

private:
    std::size_t page_, inside_;
    char* all_;
    double* begin_;
};

// n doubles so many bytes from where a cache line begins.
class Askew {
public:
    Askew(const double* values, std::size_t n, std::size_t bytes) : room_((n + 17) * sizeof(double))
    {
        const auto at = reinterpret_cast<std::uintptr_t>(room_.data());
        void* const from = room_.data() + (64 - at % 64) + bytes;
        begin_ = static_cast<double*>(from);
        if (values != nullptr) std::memcpy(static_cast<void*>(begin_), values, n * sizeof(double));
    }

    double* begin() const { return begin_; }

private:
    std::vector<char> room_;
    double* begin_;
};

// The results of a call all of whose arrays are made anew by Array(values, n, how).
template <class Array, class How>
Numbers results_with(const AnyEntry& entry, VEMKNInfo* net, const Request& q, How how)
{
    Call c = q.batch.call();
    c.v = q.v.data();
    c.nv = q.nv;
    const Lengths n = lengths_of(entry, c);
    const Array w(c.w, n.w, how), x(c.x, n.x, how), y(c.y, n.y, how), v(c.v, n.v, how);
    const Array value(nullptr, n.value, how), array(nullptr, n.array, how);
    const Array products(nullptr, n.products, how);
    c.w = w.begin();
    c.x = x.begin();
    c.y = y.begin();
    c.v = v.begin();
    c.value = value.begin();
    c.array = array.begin();
    c.products = products.begin();
    EXPECT_EQ(0, entry.call(net, c));
    Numbers all(n.value + n.array + n.products);
    std::memcpy(all.data(), static_cast<void*>(value.begin()), n.value * sizeof(double));
    std::memcpy(&all[n.value], static_cast<void*>(array.begin()), n.array * sizeof(double));
    if (n.products > 0) {
        std::memcpy(&all[n.value + n.array],
                    static_cast<void*>(products.begin()),
                    n.products * sizeof(double));
    }
    return all;
}

// body(network, handle, request) for networks of many widths, rows and numbers of tangents.
template <class Body>
void for_each_shape(const Body& body)
{
    for (unsigned width = 1; width <= 17; width += 4) {
        for (const unsigned rows : {1u, 7u, 65u}) {
            const plain::Network network = {.numin = width,
                                            .numout = 1 + width % 3,
                                            .sizes = {width, width + 1},
                                            .activation = width % 2 == 0 ? "atan" : "softplus",
                                            .norm = "sum_log_dnorm_fat"};
            const Network net(network.text());
            vemk_setpar(net, 1 + rows % 3, 16);
            body(net, random_request(network, rows, width, 1 + rows % 5, width));
        }
    }
}

volatile std::sig_atomic_t ticks = 0;

// Arithmetic of its own, with exceptions.
void tick(int)
{
    ticks = ticks + 1;
    volatile double zero = 0.0, huge = 1e308;
    zero = zero / zero;
    huge = huge * huge;
}

}  // namespace

TEST(GuardFault, ArraysBesidePagesThatNobodyMayTouch_NothingBeyondThem)
{
    for_each_shape([](VEMKNInfo* net, const Request& q) {
        for (const AnyEntry& entry : ALL_ENTRIES) {
            const auto expected = bits_of(entry.run(net, q).numbers);
            for (const bool behind : {true, false}) {
                EXPECT_EQ(expected, bits_of(results_with<AtThePageEnd>(entry, net, q, behind)))
                    << entry.name;
            }
        }
    });
}

TEST(GuardFault, ArraysThatLieAskew_TheSameBits)
{
    for_each_shape([](VEMKNInfo* net, const Request& q) {
        for (const AnyEntry& entry : ALL_ENTRIES) {
            const auto expected = bits_of(entry.run(net, q).numbers);
#if defined(VEMKN_SANITIZED)  // a double where none may lie is for them to report
            const auto offsets = {8u, 24u, 56u};
#else
            const auto offsets = {1u, 4u, 7u, 8u, 24u, 56u};
#endif
            for (const std::size_t bytes : offsets) {
                EXPECT_EQ(expected, bits_of(results_with<Askew>(entry, net, q, bytes)))
                    << entry.name << ", " << bytes;
            }
        }
    });
}

TEST(GuardFault, AClockThatInterruptsCalls_TheSameBits)
{
    const plain::Network network = usual_network();
    const Network net(network.text());
    vemk_setpar(net, 3, 16);
    const Request q = random_request(network, 100, 5, 3, 1);
    const auto expected = all_bits(net, q);
    struct sigaction action = {}, before = {};
    action.sa_handler = tick;
    action.sa_flags = SA_RESTART;
    sigaction(SIGALRM, &action, &before);
    const itimerval often = {{0, 100}, {0, 100}}, never = {{0, 0}, {0, 0}};
    setitimer(ITIMER_REAL, &often, nullptr);
    for (int i = 0; ticks < usual_or_full(1'000, 160'000) && i < 1'000'000; ++i) {
        EXPECT_EQ(expected, all_bits(net, q));
    }
    setitimer(ITIMER_REAL, &never, nullptr);
    sigaction(SIGALRM, &before, nullptr);
}
