#ifndef VEMKN_FIT_REPORT_LINES_H
#define VEMKN_FIT_REPORT_LINES_H

#include <string>
#include <vector>

namespace fit {

/// A label and what it stands for.
std::string line(const std::string& label, const std::string& text);

/// Columns of a small table, the first one flush left.
std::string row(const std::string& label, const std::vector<std::string>& cells);

std::string percent(double share);

}  // namespace fit

#endif
