#pragma once

#include <cstddef>

// A view into the middle of a call: the program's operator new, which the library uses too, asks the watcher first.
// The watcher may look at the state of the process, wait, or throw std::bad_alloc. Allocations that the watcher makes
// itself do not come back to it. Link support/allocations.cpp.

namespace allocations {

using Watcher = void (*)();

void watch(Watcher watcher);

inline void ignore()
{
    watch(nullptr);
}

}  // namespace allocations
