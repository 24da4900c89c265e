#include "fit/failure.h"

#include <algorithm>

namespace vemknfit {

std::string printable(std::string text)
{
    constexpr unsigned char FIRST = 0x20, DELETE = 0x7f;
    std::replace_if(
        text.begin(), text.end(), [](unsigned char c) { return c < FIRST || c == DELETE; }, '?');
    return text;
}

Failure::Failure(int code, const std::string& text, std::int64_t row)
    : std::runtime_error(printable(text)), code_(code), row_(row)
{
}

}  // namespace vemknfit
