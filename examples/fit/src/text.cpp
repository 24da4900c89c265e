#include "text.h"

#include <array>
#include <charconv>
#include <cstdio>

namespace fit {

std::string number(double value, int digits)
{
    std::array<char, 40> text{};
    const int length = std::snprintf(text.data(), text.size(), "%.*g", digits, value);
    return {text.data(), static_cast<std::size_t>(length)};
}

std::string exact_number(double value)
{
    std::array<char, 40> text{};
    const auto [end, error] = std::to_chars(text.data(), text.data() + text.size(), value);
    return {text.data(), end};
}

std::string join(const std::vector<std::string>& words, const std::string& between)
{
    std::string text;
    for (std::size_t i = 0; i < words.size(); ++i) text += (i == 0 ? "" : between) + words[i];
    return text;
}

}  // namespace fit
