#ifndef VEMKN_FIT_REPORT_LINES_H
#define VEMKN_FIT_REPORT_LINES_H

#include <cstddef>
#include <string>
#include <vector>

namespace fit {

/// A label and what it stands for.
std::string line(const std::string& label, const std::string& text);

/// Columns of a small table, the first one flush left.
std::string row(const std::string& label, const std::vector<std::string>& cells);

std::string percent(double share);

/// What follows the number of rows that are there: nothing if none was left out.
std::string left_out_rows(std::size_t missing_values);

}  // namespace fit

#endif
