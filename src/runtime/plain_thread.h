#pragma once

namespace VEMKN {

// Whether the system lets the process start one more thread, with a stack as large as those of OpenMP's threads: starts one
// that does nothing.
bool can_start_thread();

}  // namespace VEMKN
