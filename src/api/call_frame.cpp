#include "api/call_frame.h"

#include <atomic>

#include "api/messages.h"

namespace VEMKN {

void print_banner_once()
{
    static std::atomic<bool> printed{false};
    if (printed.load(std::memory_order_relaxed) || printed.exchange(true)) return;
    write_output("VEMKN 2026.9.1175 (C) 2026 the VEMKN developers\n");
}

}  // namespace VEMKN
