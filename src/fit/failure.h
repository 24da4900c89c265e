#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace vemknfit {

// With '?' in place of control characters, on which a terminal would act.
std::string printable(std::string text);

// What the library says of an error. The text may quote what it was given: control characters in it are shown as '?'.
class Failure : public std::runtime_error {
public:
    static constexpr std::int64_t NO_ROW = -1;

    // code: one of vemkn_fit.h; row: of the data, from 0 on
    Failure(int code, const std::string& text, std::int64_t row = NO_ROW);

    int code() const { return code_; }

    std::int64_t row() const { return row_; }

private:
    int code_;
    std::int64_t row_;
};

}  // namespace vemknfit
