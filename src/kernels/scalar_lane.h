#pragma once

#include <cmath>

// A lane type is what the element functions compute with: V, one or several doubles with + - * / and unary minus, and
//
//   WIDTH                     doubles in a V
//   set(a)                    a in every double
//   load(p), store(p, v)      WIDTH doubles of memory
//   less(a, b), equal(a, b)   quiet comparisons, giving a mask
//   select(mask, a, b)        a where the mask is true, else b
//   abs, negate, exp, log, atan
//
// The kernels compute with the registers of lane.h. One double is for sums that are formed element by element, none of which
// needs exp, log or atan, and for the densities over carriers, of which no entry point makes use: there these are the C maths
// library's.

namespace VEMKN {

struct ScalarLane {
    using V = double;
    static constexpr int WIDTH = 1;

    static double set(double a) { return a; }

    static double load(const double* p) { return *p; }

    static void store(double* p, double v) { *p = v; }

    static bool less(double a, double b) { return std::isless(a, b); }

    static bool equal(double a, double b) { return a == b; }

    static double select(bool mask, double a, double b) { return mask ? a : b; }

    static double negate(double a) { return -a; }

    static double abs(double a) { return std::fabs(a); }

    static double exp(double a) { return std::exp(a); }

    static double log(double a) { return std::log(a); }

    static double atan(double a) { return std::atan(a); }
};

}  // namespace VEMKN
