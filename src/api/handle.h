#pragma once

#include <cstdint>

#include "fad/elementary/model.h"
#include "model/model.h"
#include "network/function_tables.h"
#include "runtime/calls.h"
#include "vemkn.h"

namespace VEMKN {

// What a host holds: the same network twice, over doubles and over carriers, kept in step in threads and batch by every
// setter; weights of its own are those of the double model. A call that runs the network makes a model of its own (api/work_model.h).
struct VEMKNInfo {
    std::uint64_t header = 440;  // never read
    DoubleModel model;
    CarrierModel derivative_model;
    // What does not depend on weights, found once for all calls.
    FunctionRows functions;
    std::uint64_t numel = 0;
    Enters enters = Enters::nothing;
    bool quiet = false;  // computing calls arm no traps
};

}  // namespace VEMKN
