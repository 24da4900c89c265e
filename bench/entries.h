#pragma once

#include <vector>

#include "problem.h"

namespace bench {

// One call of an entry point with the handle's batch. in holds the directions or cotangents, out takes all results.
using Call = void(const Problem&,
                  unsigned directions,
                  const std::vector<double>& in,
                  std::vector<double>& out);

Call compute, obj, objv, g, Hv, Jv, vJ, vJ_vec;

// An entry point as the table knows it: its name, how many directions or cotangents it gets, and how many forward and
// backward products its result asks for in units of one pass.
struct Entry {
    const char* name;
    unsigned directions;
    double forward_passes;
    double backward_passes;
    Call* call;
};

const std::vector<Entry>& entries();

// What a call with so many directions or cotangents, or none, reads and writes at most.
std::vector<double> numbers_in(const Problem& p, unsigned directions);
std::vector<double> numbers_out(const Problem& p, unsigned directions);

}  // namespace bench
