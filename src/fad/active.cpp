#include "fad/active.h"

#include "runtime/messages.h"

namespace yafad {

void report_error(Error& error)
{
    if (ErrorHandler* const handler = ErrorHandler::getHandler()) {
        handler->report(error);
    } else {
        VEMKN::write_error(error.message + "\n");
    }
}

namespace {

// The place that a report names: a fixed part of the message, which hosts may look for.
constexpr const char* REPORT_FILE = "ad.h";
constexpr int REPORT_LINE = 269;

void report_pole_division(const FO::Dynamic::Active<1>& dividend, double divisor)
{
    const std::string point = VEMKN::message("non differentiable function ",
                                             "division",
                                             " at point (",
                                             dividend.value,
                                             ", ",
                                             divisor,
                                             ")");
    const FO::Dynamic::Active<1> right(divisor);
    Discontinuity<FO::Dynamic::Active<1>> error(
        REPORT_FILE,
        REPORT_LINE,
        POLE_DIVISION_C,
        VEMKN::message(REPORT_FILE, ":", REPORT_LINE, ": POLE_DIVISION_C: ", point),
        dividend,
        dividend,
        right);
    report_error(error);
}

}  // namespace

FO::Dynamic::Active<1>::Active(double number) : Active(number, scalar_tangent_count) {}

FO::Dynamic::Active<1>::Active(double number, std::uint64_t tangents)
    : N(tangents), value(number), derivatives(0.0, tangents)
{
}

FO::Dynamic::Active<1>& FO::Dynamic::operator/=(Active<1>& a, double divisor)
{
    if (divisor == 0.0) report_pole_division(a, divisor);
    a.value /= divisor;
    a.derivatives /= divisor;
    return a;
}

}  // namespace yafad
