#pragma once

#include <cstdint>

namespace VEMKN {

// The gate that threads pass who need some state of the process to stand still: those who ask for the same state are behind
// it together, any other waits, first come first served. A fork's child starts with nobody behind it.
//
//   state : what they ask for; EXCLUSIVE is shared with nobody
//   set_state : runs for the first to pass, while nobody else is behind the gate
inline constexpr std::uint64_t EXCLUSIVE = ~std::uint64_t{0};

void pass_gate(std::uint64_t state, void (*set_state)(std::uint64_t));

// The calling thread is done, if it has passed.
void leave_gate();

}  // namespace VEMKN
