#pragma once

#include <sys/time.h>

#include <cstdlib>

#include "runtime/messages.h"
#include "runtime/traps.h"

namespace VEMKN {

// The timing line of the derivative products: "J = value, seconds s" on standard output when the environment variable
// NN_TRACE is set, even to nothing.
class Trace {
public:
    Trace() : start_(now()) {}

    void finish() { seconds_ = now() - start_; }

    static bool wanted() { return std::getenv("NN_TRACE") != nullptr; }

    void print(double value) const
    {
        look_at_flags();
        write_output(message("J = ", value, ", ", seconds_, " s\n"));
    }

private:
    static double now()
    {
        timeval time;
        if (gettimeofday(&time, nullptr) != 0) return 0.0;
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
    }

    double start_;
    double seconds_ = 0.0;
};

}  // namespace VEMKN
