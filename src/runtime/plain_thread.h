#pragma once

namespace VEMKN {

// How many of so many threads the system lets the process start now, with stacks as large as those of OpenMP's threads: starts
// them, and lets them end at once.
int threads_to_be_had(int wanted);

}  // namespace VEMKN
