#include "text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <numeric>

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

std::errc read_number(const std::string& text, double& value)
{
    const bool plus = text.starts_with('+') && !text.starts_with("+-");
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data() + (plus ? 1 : 0), end, value);
    if (error != std::errc()) return error;
    return stop == end && std::isfinite(value) ? std::errc() : std::errc::invalid_argument;
}

std::string nearest(const std::string& word, const std::vector<std::string>& words)
{
    constexpr std::size_t LETTERS_A_CHANGE = 3;
    std::string found;
    std::size_t fewest = word.size() / LETTERS_A_CHANGE + 1;
    for (const std::string& other : words) {
        // Changes from the letters so far of one to all beginnings of the other. [Wagner, Fischer, J. ACM 21 (1974) 168]
        std::vector<std::size_t> changes(other.size() + 1);
        std::iota(changes.begin(), changes.end(), std::size_t{0});
        for (const char letter : word) {
            std::size_t before = changes[0]++;
            for (std::size_t i = 0; i < other.size(); ++i) {
                const std::size_t replaced = before + (letter == other[i] ? 0 : 1);
                before = changes[i + 1];
                changes[i + 1] = std::min({replaced, before + 1, changes[i] + 1});
            }
        }
        if (changes.back() < fewest) {
            fewest = changes.back();
            found = other;
        }
    }
    return found;
}

std::string join(const std::vector<std::string>& words, const std::string& between)
{
    std::string text;
    for (std::size_t i = 0; i < words.size(); ++i) text += (i == 0 ? "" : between) + words[i];
    return text;
}

}  // namespace fit
