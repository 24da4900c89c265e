#pragma once

#include <cfenv>
#include <cmath>
#include <limits>

// What the tests read and set of a thread's floating-point environment (x86-64: SSE and x87 have one each).

// Invalid, divide-by-zero and overflow: what the library arms during a call.
inline constexpr int LIBRARY_TRAPS = FE_INVALID | FE_DIVBYZERO | FE_OVERFLOW;

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

// Leaves the flags of invalid, divide-by-zero and overflow pending in both units, as a host does that computed with
// infinities.
inline void leave_stale_flags()
{
    __builtin_ia32_ldmxcsr(__builtin_ia32_stmxcsr() | LIBRARY_TRAPS);
    volatile long double zero = 0.0L, huge = std::numeric_limits<long double>::max(), result = 0.0L;
    result = zero / zero;
    result = huge / zero;
    result = huge * huge;
    static_cast<void>(result);
}

// Traps on for a scope, as they are inside a call of the library.
class TrapsArmed {
public:
    TrapsArmed()
    {
        std::feclearexcept(FE_ALL_EXCEPT);
        feenableexcept(LIBRARY_TRAPS);
    }

    ~TrapsArmed()
    {
        fedisableexcept(LIBRARY_TRAPS);
        std::feclearexcept(FE_ALL_EXCEPT);
    }

    TrapsArmed(const TrapsArmed&) = delete;
    TrapsArmed& operator=(const TrapsArmed&) = delete;
};
