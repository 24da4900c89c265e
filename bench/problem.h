#pragma once

#include <string>
#include <vector>

#include "vemkn.h"

namespace bench {

// The five networks that every table of docs/performance.md speaks of.
struct Shape {
    const char* name;
    std::vector<unsigned> widths;  // input, hidden ..., output
    unsigned rows;
};

const std::vector<Shape>& shapes();

// A network of a shape with seeded weights, inputs and targets. Targets are outputs at other weights plus noise, so that
// most residuals lie in the likelihood's core and a few beyond.
struct Problem {
    Problem(const Shape& shape, const std::string& activation, const std::string& norm);
    ~Problem();
    Problem(const Problem&) = delete;
    Problem& operator=(const Problem&) = delete;

    const Shape& shape;
    std::string text;
    VEMKNInfo* net;
    unsigned nw, nin, nout, rows;
    std::vector<double> w, x, y;
};

// Seeded numbers, uniform in [-1, 1].
std::vector<double> uniform(std::size_t n, unsigned seed);

}  // namespace bench
