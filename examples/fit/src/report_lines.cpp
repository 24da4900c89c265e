#include "report_lines.h"

#include <array>
#include <cstdio>

#include "text.h"

namespace fit {
namespace {

/// A longer one stays whole.
std::string padded(const std::string& label, std::size_t width)
{
    return label + std::string(label.size() < width ? width - label.size() : 1, ' ');
}

}  // namespace

std::string line(const std::string& label, const std::string& text)
{
    return padded(label, 17) + text + "\n";
}

std::string row(const std::string& label, const std::vector<std::string>& cells)
{
    std::string result = padded("  " + label, 30);
    std::array<char, 64> text{};
    for (const std::string& cell : cells) {
        std::snprintf(text.data(), text.size(), " %12s", cell.c_str());
        result += text.data();
    }
    return result + "\n";
}

std::string percent(double share)
{
    return number(100.0 * share, 3) + " %";
}

std::string left_out_rows(std::size_t missing_values)
{
    if (missing_values == 0) return "";
    return ", " + std::to_string(missing_values) + " left out for missing values";
}

}  // namespace fit
