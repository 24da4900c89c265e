#include "runtime/call_frame.h"

#include <atomic>

#include "runtime/messages.h"
#include "vemkn.h"

namespace VEMKN {

namespace {

std::atomic<bool> printed{false};

}  // namespace

void count_banner_as_printed()
{
    printed.store(true);
}

void print_banner_once()
{
    if (printed.load(std::memory_order_relaxed) || printed.exchange(true)) return;
    write_output("VEMKN " VEMKN_VERSION " (C) 2026 the VEMKN developers\n");
}

}  // namespace VEMKN
