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
 */
#ifndef VEMKN_ERRORS_H
#define VEMKN_ERRORS_H

#include <string>
#include <utility>

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
