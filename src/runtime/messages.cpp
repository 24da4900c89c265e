#include "runtime/messages.h"

#include <cfenv>
#include <cstdlib>
#include <iostream>

#include "runtime/traps.h"

namespace VEMKN {

namespace {

void write(std::ostream& stream, std::string_view text)
{
    if (std::streambuf* const buffer = stream.rdbuf()) {
        buffer->sputn(text.data(), static_cast<std::streamsize>(text.size()));
    }
}

}  // namespace

void write_output(std::string_view text)
{
    write(std::cout, text);
}

void write_error(std::string_view text)
{
    write(std::cerr, text);
}

void stop(const std::string& text)
{
    write_error(message("stop: ", text, "\n"));
    // The host's exit handlers are the host's arithmetic: no traps of ours in it.
    fedisableexcept(TRAPS);
    std::exit(3);
}

}  // namespace VEMKN
