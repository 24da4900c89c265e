#pragma once

#include <vector>

#include "problem.h"

namespace bench {

// One call of an entry point with the handle's batch. in holds the tangents or cotangents, out takes all results.
using Call = void(const Problem&,
                  unsigned tangents,
                  const std::vector<double>& in,
                  std::vector<double>& out);

Call compute, obj, objv, g, Hv, Jv, vJ, vJ_vec;

// An entry point as the table knows it: its name, how many tangents or cotangents it gets, and how many forward and
// backward products its result asks for in units of one pass.
struct Entry {
    const char* name;
    unsigned tangents;
    double forward_passes;
    double backward_passes;
    Call* call;
};

const std::vector<Entry>& entries();

// What a call with so many tangents or cotangents, or none, reads and writes at most.
std::vector<double> numbers_in(const Problem& p, unsigned tangents);
std::vector<double> numbers_out(const Problem& p, unsigned tangents);

}  // namespace bench
