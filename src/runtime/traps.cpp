#include "runtime/traps.h"

#include <csignal>
#include <cstdlib>

namespace VEMKN {

void raise_for_missing_trap()
{
    // A handler that jumps finds the flags as after a trap, gone.
    std::feclearexcept(TRAPS);
    std::raise(SIGFPE);
    // It was ignored, waits since it is blocked, or its handler has returned. After a trap the operation would trap again.
    struct sigaction by_default = {};
    by_default.sa_handler = SIG_DFL;
    sigaction(SIGFPE, &by_default, nullptr);
    sigset_t only;
    sigemptyset(&only);
    sigaddset(&only, SIGFPE);
    pthread_sigmask(SIG_UNBLOCK, &only, nullptr);
    std::raise(SIGFPE);
    std::abort();
}

}  // namespace VEMKN
