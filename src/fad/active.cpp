#include "fad/active.h"

#include <algorithm>

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

void FO::Dynamic::report_pole_division(const Active<1>& dividend, double divisor)
{
    // The place that a report names: a fixed part of the message, which hosts may look for.
    constexpr const char* REPORT_FILE = "ad.h";
    constexpr int REPORT_LINE = 269;
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

void FO::Dynamic::report_pole_division(const WorkScalar& dividend, double divisor)
{
    Active<1> of_host(dividend.value, dividend.derivatives.size());
    std::copy(
        dividend.derivatives.begin(), dividend.derivatives.end(), std::begin(of_host.derivatives));
    report_pole_division(of_host, divisor);
}

FO::Dynamic::Active<1>::Active(double number) : Active(number, scalar_tangent_count) {}

FO::Dynamic::Active<1>::Active(double number, std::uint64_t tangents)
    : N(tangents), value(number), derivatives(0.0, tangents)
{
}

}  // namespace yafad
