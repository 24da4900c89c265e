#include "runtime/call_frame.h"

#include <atomic>

#include "runtime/messages.h"
#include "vemkn.h"

namespace VEMKN {

void print_banner_once()
{
    static std::atomic<bool> printed{false};
    if (printed.load(std::memory_order_relaxed) || printed.exchange(true)) return;
    write_output("VEMKN " VEMKN_VERSION " (C) 2026 the VEMKN developers\n");
}

}  // namespace VEMKN
