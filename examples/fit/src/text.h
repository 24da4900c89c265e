#ifndef VEMKN_FIT_TEXT_H
#define VEMKN_FIT_TEXT_H

#include <cstddef>
#include <string>
#include <system_error>
#include <vector>

namespace fit {

/// For people: up to [digits] significant digits.
std::string number(double value, int digits = 6);

/// For files: the shortest text that reads back as the same bits.
std::string exact_number(double value);

/** The one rule for numbers of files and of options: a sign, decimal digits, a point, an exponent, and nothing else.
 * @return invalid_argument for any other text, NaN and infinity; result_out_of_range where no double but 0 or infinity is near */
std::errc read_number(const std::string& text, double& value);

/// Which of the words was meant by one that is none of them: the one with the fewest letters changed; empty if they are too many.
std::string nearest(const std::string& word, const std::vector<std::string>& words);

std::string join(const std::vector<std::string>& words, const std::string& between);

}  // namespace fit

#endif
