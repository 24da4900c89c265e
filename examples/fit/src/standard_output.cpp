#include "standard_output.h"

#include <unistd.h>

#include <cstdio>
#include <stdexcept>

namespace fit {

LinesToStandardError::LinesToStandardError()
{
    std::fflush(stdout);
    output_ = dup(STDOUT_FILENO);
    dup2(STDERR_FILENO, STDOUT_FILENO);
}

LinesToStandardError::~LinesToStandardError()
{
    std::fflush(stdout);
    if (output_ < 0) {  // it was closed, and what is written to it is to fail
        close(STDOUT_FILENO);
        return;
    }
    dup2(output_, STDOUT_FILENO);
    close(output_);
}

void put_on_standard_output(const std::string& text)
{
    const bool whole = std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
    if (!whole || std::fflush(stdout) != 0)
        throw std::runtime_error("standard output cannot be written in full");
}

}  // namespace fit
