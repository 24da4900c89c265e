#pragma once

#include <cstddef>
#include <string>

namespace vemknfit {

// A whole file of at most so many bytes. Throws Failure.
std::string read_file(const std::string& path, std::size_t most);

// Beside it first, then renamed, so that an older file survives what goes wrong; but a device or a pipe is written to. Throws
// Failure where it cannot be written in full.
void write_file(const std::string& path, const std::string& text);

}  // namespace vemknfit
