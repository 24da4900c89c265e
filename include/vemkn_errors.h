/** @file
 * How a C++ host hears of a division by zero among derivative carriers: install an ErrorHandler.
 *
 * SPDX-License-Identifier: BSD-3-Clause
 *
 *     struct Counter : yafad::ErrorHandler {
 *         int reports = 0;
 *         void report(yafad::Error& error) override { ++reports; std::cerr << error.message << '\n'; }
 *     } counter;
 *     yafad::ErrorHandler::getHandler() = &counter;
 *
 * The error is a Discontinuity; a handler that needs the operands with their derivatives casts it:
 *
 *     using Pole = yafad::Discontinuity<yafad::FO::Dynamic::Active<1>>;
 *     if (const auto* pole = dynamic_cast<const Pole*>(&error)) { ... pole->left.derivatives ... }
 */
#ifndef VEMKN_ERRORS_H
#define VEMKN_ERRORS_H

#include <cstdint>
#include <string>
#include <utility>
#include <valarray>

#if defined(__GNUC__)
#define VEMKN_ERRORS_API __attribute__((visibility("default")))
#else
#define VEMKN_ERRORS_API
#endif

/** What a C++ host meets of the library's derivative carriers. */
namespace yafad {

/** Categories of errors; the one in use. */
enum ErrorCategory : int { POLE_DIVISION_C = 12 /**< a division by zero */ };

/** What went wrong, and where in the library. Lives only while the handler runs: copy what you keep. */
class VEMKN_ERRORS_API Error {
public:
    std::string file;    /**< source file that found it, without a folder */
    int line;            /**< line in that file */
    int category;        /**< an ErrorCategory */
    std::string message; /**< file:line: category name: what happened */

    /** Made by the library.
     * @param[in] file_name, line_number, error_category, text  the members, in their order */
    Error(std::string file_name, int line_number, int error_category, std::string text)
        : file(std::move(file_name)),
          line(line_number),
          category(error_category),
          message(std::move(text))
    {
    }

    virtual ~Error() = default;
};

namespace FO {
namespace Dynamic {

/** A number with its derivatives along N tangents; for first order, Order is 1. */
template <int Order>
class Active;

/** The scalar carrier. */
template <>
class VEMKN_ERRORS_API Active<1> {
public:
    Active() = default;

    /** A constant, with as many derivatives of zero as the call has tangents. Made by the library.
     * @param[in] number  its value */
    explicit Active(double number);

    /** The same for any number of tangents. Made by the library.
     * @param[in] number  its value
     * @param[in] tangents  how many derivatives it has */
    Active(double number, std::uint64_t tangents);

    std::uint64_t N = 0;               /**< number of tangents */
    double value = 0.0;                /**< the number */
    std::valarray<double> derivatives; /**< its N derivatives */
};

}  // namespace Dynamic
}  // namespace FO

/** A division by zero among carriers of that kind. */
template <class Scalar>
class Discontinuity;

/** A scalar carrier that is divided by zero in place, with the operands as they are before the division. Like the error
 * itself they live only while the handler runs. */
template <>
class VEMKN_ERRORS_API Discontinuity<FO::Dynamic::Active<1>> : public Error {
public:
    /** What is divided. */
    using Scalar = FO::Dynamic::Active<1>;

    /** Made by the library.
     * @param[in] file_name, line_number, error_category, text  the members of Error, in their order
     * @param[in] result_operand, left_operand, right_operand  the members, in their order */
    Discontinuity(std::string file_name,
                  int line_number,
                  int error_category,
                  std::string text,
                  const Scalar& result_operand,
                  const Scalar& left_operand,
                  const Scalar& right_operand)
        : Error(std::move(file_name), line_number, error_category, std::move(text)),
          result(result_operand),
          left(left_operand),
          right(right_operand)
    {
    }

    const Scalar& result; /**< where the quotient goes: the dividend */
    const Scalar& left;   /**< the dividend */
    const Scalar& right;  /**< the divisor, a constant */
};

/** Base of what a host installs. The host owns the handler and keeps it alive as long as it is installed. */
class VEMKN_ERRORS_API ErrorHandler {
public:
    virtual ~ErrorHandler() = default;

    /** Called for every error, during a call of the library, on the thread that met it: possibly on several threads at
     * once. On return the library goes on, and unless the handle is quiet its traps are armed: a division by zero then ends
     * the process. Do not call the library from here, and do not fork.
     * @param[in] error  what happened */
    virtual void report(Error& error) = 0;

    /** The one handler of the process, null until a host installs one; then messages go to standard error. Not locked:
     * install it while no call runs.
     * @return the place of the pointer, to be assigned to */
    static ErrorHandler*& getHandler()
    {
        static ErrorHandler* currentErrorHandler;
        return currentErrorHandler;
    }
};

}  // namespace yafad

#endif /* VEMKN_ERRORS_H */
