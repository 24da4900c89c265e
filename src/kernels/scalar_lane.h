#pragma once

#include <cmath>

// A lane type is what the element functions compute with: V, one or several doubles with + - * / and unary minus, and
//
//   WIDTH                     doubles in a V
//   set(a)                    a in every double
//   load(p), store(p, v)      WIDTH doubles of memory
//   load_part(p, n, rest)     n < WIDTH doubles of memory, followed by those of rest
//   less(a, b), equal(a, b)   quiet comparisons, giving a mask
//   select(mask, a, b)        a where the mask is true, else b
//   abs, exp, log, atan       of the C maths library; the vector ones of its vector part
//
// One double needs no load_part. Vectors of them also have any(mask), whether it is true anywhere, and outside(...), the
// mask of what the vector functions leave to the scalar ones.
//
// The vector functions of the maths library raise exceptions of their own far out and at infinities and NaN, so a lane
// there is computed by the scalar function: it raises what that raises, no more and no less.

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
