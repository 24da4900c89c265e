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

// A thread's traps for as long as this lives, armed or masked; then the floating-point environment that it came with.
//
// Traps are a thread's own: every thread of a team takes over those of the calling thread for its share of the work, and
// leaves with its own, so that the host's next parallel region finds its threads as they were.
class ScopedTraps {
public:
    explicit ScopedTraps(bool armed)
    {
        std::fegetenv(&before_);
        if (armed) {
            arm_traps();
        } else {
            fedisableexcept(TRAPS);
        }
    }

    ~ScopedTraps() { std::fesetenv(&before_); }

    ScopedTraps(const ScopedTraps&) = delete;
    ScopedTraps& operator=(const ScopedTraps&) = delete;

    // Whether the calling thread has them armed.
    static bool armed_here() { return (fegetexcept() & TRAPS) != 0; }

private:
    std::fenv_t before_;
};

}  // namespace VEMKN
