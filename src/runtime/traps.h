#pragma once

#include <cfenv>

namespace VEMKN {

// What raises SIGFPE while a computing call runs: a NaN made of numbers, a division by zero, an overflow.
inline constexpr int TRAPS = FE_INVALID | FE_DIVBYZERO | FE_OVERFLOW;

// Arms the traps on the calling thread. Flags that the host left pending would raise at once, so they go first; looking
// costs less than clearing.
inline void arm_traps()
{
    if (std::fetestexcept(TRAPS) != 0) std::feclearexcept(TRAPS);
    feenableexcept(TRAPS);
}

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
