#ifndef VEMKN_FIT_STANDARD_OUTPUT_H
#define VEMKN_FIT_STANDARD_OUTPUT_H

#include <string>

namespace fit {

/// What the library prints meanwhile, its banner and what INFO and NN_TRACE ask for, goes to standard error: rows alone are to stand
/// on standard output.
class LinesToStandardError {
public:
    LinesToStandardError();
    ~LinesToStandardError();
    LinesToStandardError(const LinesToStandardError&) = delete;
    LinesToStandardError& operator=(const LinesToStandardError&) = delete;

private:
    int output_;
};

/// @throw std::runtime_error if it cannot be written in full
void put_on_standard_output(const std::string& text);

}  // namespace fit

#endif
