#include "runtime/messages.h"

#include <dlfcn.h>

#include <cstdlib>
#include <cstring>
#include <iostream>

#include "runtime/calls.h"

namespace VEMKN {

namespace {

bool is_made(const std::ostream& stream)
{
    void* functions = nullptr;
    std::memcpy(&functions, static_cast<const void*>(&stream), sizeof functions);
    return functions != nullptr;
}

// The buffer of a standard stream, or null. A program mostly has the streams of the C++ library as copies of its own; then a
// library that is loaded with RTLD_DEEPBIND sees the originals, which nobody has made.
std::streambuf* buffer_of(std::ostream& stream, const char* symbol)
{
    if (is_made(stream)) return stream.rdbuf();
    void* const program = dlopen(nullptr, RTLD_NOW);
    auto* const copy = static_cast<std::ostream*>(dlsym(program, symbol));
    return copy != nullptr && is_made(*copy) ? copy->rdbuf() : nullptr;
}

void write(std::streambuf* buffer, std::string_view text)
{
    if (buffer != nullptr) buffer->sputn(text.data(), static_cast<std::streamsize>(text.size()));
}

}  // namespace

void write_output(std::string_view text)
{
    write(buffer_of(std::cout, "_ZSt4cout"), text);
}

void write_error(std::string_view text)
{
    std::streambuf* const buffer = buffer_of(std::cerr, "_ZSt4cerr");
    write(buffer, text);
    // A host may have made the stream buffer, and the process may end before it is flushed.
    if (buffer != nullptr) buffer->pubsync();
}

void stop(const std::string& text)
{
    write_error(message("stop: ", text, "\n"));
    hold_other_threads_back();
    std::exit(3);
}

}  // namespace VEMKN
