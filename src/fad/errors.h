#pragma once

#include "vemkn_errors.h"

namespace yafad {

// Hands an error to the handler that the host installed; without one its message and a line end go to standard error.
void report_error(Error& error);

}  // namespace yafad
