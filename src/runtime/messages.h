#pragma once

#include <sstream>
#include <string>
#include <string_view>

namespace VEMKN {

// One text, in one piece, on std::cout or std::cerr. Goes through the stream's buffer, so that neither the
// host's formatting flags nor its exception mask nor its locale has a say, and a closed or full stream is no error.
void write_output(std::string_view text);
void write_error(std::string_view text);

// The parts one after the other as a fresh stream prints them: classic locale, six significant digits.
template <class... Parts>
std::string message(const Parts&... parts)
{
    std::ostringstream out;
    out.imbue(std::locale::classic());
    (out << ... << parts);
    return out.str();
}

// Writes "stop: ", text and a line end to standard error and ends the process with exit status 3.
[[noreturn]] void stop(const std::string& text);

}  // namespace VEMKN
