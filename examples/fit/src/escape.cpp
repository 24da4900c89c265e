#include "escape.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cwchar>
#include <locale>

namespace fit {
namespace {

struct Range {
    char32_t first;
    char32_t last;
};

/// What a terminal acts on, what some program takes for the end of a line, and what cannot be seen.
constexpr std::array<Range, 8> unprintable{{
    {0x00, 0x1f},
    {0x7f, 0x9f},
    {0x61c, 0x61c},  // the direction of the text that follows; more of them below
    {0x200e, 0x200f},
    {0x2028, 0x202e},
    {0x2066, 0x2069},
    {0xd800, 0xdfff},  // halves of surrogate pairs are no UTF-8, but libstdc++ lets them through
    {0xfeff, 0xfeff},  // a byte order mark
}};

bool printable(char32_t character)
{
    return std::none_of(unprintable.begin(), unprintable.end(), [&](const Range& range) {
        return range.first <= character && character <= range.last;
    });
}

/// @return how many bytes the first character takes; 0 if they are no UTF-8
std::size_t decode(std::u8string_view text, char32_t& character)
{
    using Utf8 = std::codecvt<char32_t, char8_t, std::mbstate_t>;
    const auto& utf8 = std::use_facet<Utf8>(std::locale::classic());
    std::mbstate_t state{};
    const char8_t* const end = text.data() + text.size();
    const char8_t* read = nullptr;
    char32_t* written = nullptr;
    utf8.in(state, text.data(), end, read, &character, &character + 1, written);
    return written == &character ? 0 : static_cast<std::size_t>(read - text.data());
}

/// With leading zeros.
std::string digits(unsigned value, int base, std::size_t width)
{
    std::array<char, 16> text{};
    const auto [end, error] = std::to_chars(text.data(), text.data() + text.size(), value, base);
    const std::string shortest(text.data(), end);
    return std::string(width - std::min(width, shortest.size()), '0') + shortest;
}

std::string escaped(char32_t character)
{
    switch (character) {
        case '\n':
            return "\\n";
        case '\r':
            return "\\r";
        case '\t':
            return "\\t";
        default:
            return character < 0x80 ? "\\x" + digits(character, 16, 2)
                                    : "\\u" + digits(character, 16, 4);
    }
}

}  // namespace

std::string visible(std::string_view text)
{
    const std::u8string bytes(text.begin(), text.end());
    std::string result;
    for (std::size_t at = 0; at < text.size();) {
        char32_t character = 0;
        const std::size_t length = decode(std::u8string_view(bytes).substr(at), character);
        if (length == 0)
            result += "\\x" + digits(bytes[at], 16, 2);
        else if (character == '\\')
            result += "\\\\";
        else if (printable(character))
            result += text.substr(at, length);
        else
            result += escaped(character);
        at += std::max<std::size_t>(length, 1);
    }
    return result;
}

std::string csv_cell(std::string_view text)
{
    std::string cell = visible(text);
    // Readers drop blanks at the ends of a cell that is not quoted.
    if (cell.find_first_of(",\"") == std::string::npos && !cell.starts_with(' ') &&
        !cell.ends_with(' '))
        return cell;
    std::string quoted = "\"";
    for (const char c : cell) quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
    return quoted + "\"";
}

std::string key_part(std::string_view text)
{
    std::string key;
    for (const char c : visible(text)) key += c == '=' ? "\\x3d" : std::string(1, c);
    return key;
}

std::string gnuplot_string(std::string_view text)
{
    // Whatever a byte means to gnuplot in double quotes, the digits of its code mean the byte alone.
    // It reads up to four of them, so one that follows is written by its code, too.
    const std::string_view plain =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ ()_-.,0123456789";
    std::string string = "\"";
    bool behind_code = false;
    for (const char c : visible(text)) {
        behind_code =
            plain.find(c) == std::string_view::npos || (behind_code && c >= '0' && c <= '9');
        string +=
            behind_code ? "\\" + digits(static_cast<unsigned char>(c), 8, 3) : std::string(1, c);
    }
    return string + "\"";
}

}  // namespace fit
