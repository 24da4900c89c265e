#pragma once

#include <cfenv>

namespace VEMKN {

// What raises SIGFPE while a computing call runs: a NaN made of numbers, a division by zero, an overflow.
inline constexpr int TRAPS = FE_INVALID | FE_DIVBYZERO | FE_OVERFLOW;

// Arms the traps on the calling thread. Flags that the host left pending would raise at once, so they go first.
inline void arm_traps()
{
    std::feclearexcept(TRAPS);
    feenableexcept(TRAPS);
}

// Traps are a thread's own: every thread of a team arms them for its share of the work, and leaves with the
// floating-point environment that it came with, so that the host's next parallel region finds its threads unarmed.
class WorkerTraps {
public:
    WorkerTraps()
    {
        std::fegetenv(&before_);
        arm_traps();
    }

    ~WorkerTraps() { std::fesetenv(&before_); }

    WorkerTraps(const WorkerTraps&) = delete;
    WorkerTraps& operator=(const WorkerTraps&) = delete;

private:
    std::fenv_t before_;
};

}  // namespace VEMKN
