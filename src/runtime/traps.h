#pragma once

#include <cfenv>

namespace VEMKN {

// What raises SIGFPE while a computing call runs: a NaN made of numbers, a division by zero, an overflow.
inline constexpr int TRAPS = FE_INVALID | FE_DIVBYZERO | FE_OVERFLOW;

// Whether the processor may lack traps, as most of aarch64 do. What would have trapped is then found by the flags that it leaves.
#if defined(__x86_64__) && !defined(VEMKN_TRAPS_BY_FLAGS)
inline constexpr bool TRAPS_MAY_BE_MISSING = false;
#else
inline constexpr bool TRAPS_MAY_BE_MISSING = true;
#endif

// Whether the calling thread computes for a call whose traps are missing.
[[gnu::tls_model("initial-exec")]] inline constinit thread_local bool looks_at_flags = false;

// Raises SIGFPE on the calling thread, and ends the process by it whatever its handler does but jump.
[[noreturn]] void raise_for_missing_trap();

// Where a trap would have ended the call at the latest: the end of a slice, and of all the work of a thread, and before anything
// is written.
inline void look_at_flags()
{
    if constexpr (TRAPS_MAY_BE_MISSING) {
        if (looks_at_flags && std::fetestexcept(TRAPS) != 0) [[unlikely]]
            raise_for_missing_trap();
    }
}

// Arms the traps on the calling thread, and says whether they are there. Flags that the host left pending would raise at once, so
// they go first; looking costs less than clearing.
inline bool arm_traps()
{
    if (std::fetestexcept(TRAPS) != 0) std::feclearexcept(TRAPS);
#ifdef VEMKN_TRAPS_BY_FLAGS
    return false;
#else
    const bool armed = feenableexcept(TRAPS) != -1;
    return armed && (!TRAPS_MAY_BE_MISSING || (fegetexcept() & TRAPS) == TRAPS);
#endif
}

// While one lives, the calling thread looks at the flags, or does not; it does for the last time at its end, on an exception's way
// out of the work too.
class FlagWatch {
public:
    explicit FlagWatch(bool looks)
    {
        if constexpr (TRAPS_MAY_BE_MISSING) {
            before_ = looks_at_flags;
            looks_at_flags = looks;
        }
    }

    ~FlagWatch()
    {
        if constexpr (TRAPS_MAY_BE_MISSING) {
            look_at_flags();
            looks_at_flags = before_;
        }
    }

    FlagWatch(const FlagWatch&) = delete;
    FlagWatch& operator=(const FlagWatch&) = delete;

private:
    bool before_ = false;
};

// A floating-point environment, traps and rounding and the treatment of subnormals, belongs to a thread. While one of these
// lives, the calling thread's own is put by and may be changed; then it comes back.
class ScopedEnvironment {
public:
    ScopedEnvironment() { std::fegetenv(&before_); }

    // Another one in its place.
    explicit ScopedEnvironment(const std::fenv_t& other) : ScopedEnvironment()
    {
        std::fesetenv(&other);
    }

    ~ScopedEnvironment() { std::fesetenv(&before_); }

    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

    // What comes back.
    const std::fenv_t& before() const { return before_; }

    // No exception traps, not even those of underflow, of inexact results and of subnormal operands.
    static void mask_all()
    {
        std::fenv_t dropped;
        std::feholdexcept(&dropped);
    }

private:
    std::fenv_t before_;
};

}  // namespace VEMKN
