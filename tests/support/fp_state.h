#pragma once

#include <gtest/gtest.h>

#include <cfenv>
#include <cmath>
#include <limits>

// What the tests read and set of a thread's floating-point environment.

// Invalid, divide-by-zero and overflow: what the library arms during a call.
inline constexpr int LIBRARY_TRAPS = FE_INVALID | FE_DIVBYZERO | FE_OVERFLOW;

// What fegetexcept() gives during a call: nothing where the library looks at flags, the processor being without traps or the
// library built so.
inline int traps_of_a_call()
{
#ifdef VEMKN_TRAPS_BY_FLAGS
    return 0;
#else
    static const bool are_there = [] {
        std::fenv_t before;
        std::fegetenv(&before);
        std::feclearexcept(FE_ALL_EXCEPT);
        const bool armed = feenableexcept(LIBRARY_TRAPS) != -1;
        std::fesetenv(&before);
        return armed;
    }();
    return are_there ? LIBRARY_TRAPS : 0;
#endif
}

// Arms traps as a host may do, and gives those that are armed then: none where the processor has none.
inline int armed_by_the_host(int traps)
{
    feenableexcept(traps);
#ifdef __x86_64__
    EXPECT_EQ(traps, fegetexcept() & traps);
#endif
    return fegetexcept();
}

#ifdef __x86_64__
// SSE and x87 have one each.
struct FpState {
    unsigned sse;
    unsigned short x87_control;
    unsigned short x87_flags;

    static FpState now()
    {
        FpState s{};
        s.sse = __builtin_ia32_stmxcsr();
        asm volatile("fnstcw %0" : "=m"(s.x87_control));
        asm volatile("fnstsw %0" : "=m"(s.x87_flags));
        // The upper bits hold the stack pointer and condition codes of the latest instruction.
        s.x87_flags &= 0x3f;
        return s;
    }

    bool operator==(const FpState&) const = default;
};

// Flush to zero, and subnormals are zero.
inline constexpr unsigned FLUSH = 0x8040;

inline bool flushes_subnormals()
{
    return (__builtin_ia32_stmxcsr() & FLUSH) == FLUSH;
}

inline void flush_subnormals(bool flush)
{
    __builtin_ia32_ldmxcsr(flush ? __builtin_ia32_stmxcsr() | FLUSH
                                 : __builtin_ia32_stmxcsr() & ~FLUSH);
}
#else
struct FpState {
    unsigned control, flags;

    static FpState now() { return {__builtin_aarch64_get_fpcr(), __builtin_aarch64_get_fpsr()}; }

    bool operator==(const FpState&) const = default;
};

inline constexpr unsigned FLUSH = 1u << 24;

inline bool flushes_subnormals()
{
    return (__builtin_aarch64_get_fpcr() & FLUSH) != 0;
}

inline void flush_subnormals(bool flush)
{
    const unsigned control = __builtin_aarch64_get_fpcr();
    __builtin_aarch64_set_fpcr(flush ? control | FLUSH : control & ~FLUSH);
}
#endif

// Leaves the flags of invalid, divide-by-zero and overflow pending, in both units where there are two, as a host does that computed with
// infinities.
inline void leave_stale_flags()
{
#ifdef __x86_64__
    __builtin_ia32_ldmxcsr(__builtin_ia32_stmxcsr() | LIBRARY_TRAPS);
#else
    __builtin_aarch64_set_fpsr(__builtin_aarch64_get_fpsr() | LIBRARY_TRAPS);
#endif
    volatile long double zero = 0.0L, huge = std::numeric_limits<long double>::max(), result = 0.0L;
    result = zero / zero;
    result = huge / zero;
    result = huge * huge;
    static_cast<void>(result);
}

// Whether this thread, which has left such flags, is in the middle of a call: it clears them at its start and gives them back in the
// end, with traps and without.
inline bool in_the_middle_of_a_call()
{
    return std::fetestexcept(LIBRARY_TRAPS) == 0;
}

// Traps on for a scope, as they are inside a call of the library. Where the processor has none, no flag may be there in the end.
class TrapsArmed {
public:
    TrapsArmed()
    {
        std::feclearexcept(FE_ALL_EXCEPT);
        feenableexcept(LIBRARY_TRAPS);
    }

    ~TrapsArmed()
    {
        EXPECT_EQ(0, std::fetestexcept(LIBRARY_TRAPS));
        fedisableexcept(LIBRARY_TRAPS);
        std::feclearexcept(FE_ALL_EXCEPT);
    }

    TrapsArmed(const TrapsArmed&) = delete;
    TrapsArmed& operator=(const TrapsArmed&) = delete;
};
