#ifndef VEMKN_FIT_TEXT_H
#define VEMKN_FIT_TEXT_H

#include <cstddef>
#include <string>
#include <vector>

namespace fit {

/// For people: up to [digits] significant digits.
std::string number(double value, int digits = 6);

/// For files: the shortest text that reads back as the same bits.
std::string exact_number(double value);

std::string join(const std::vector<std::string>& words, const std::string& between);

}  // namespace fit

#endif
