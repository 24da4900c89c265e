#include <array>
#include <cstring>
#include <limits>

#include "fit/interface.h"

namespace vemknfit {
namespace {

// No std::string: its end would have to wait for that of the thread.
struct Message {
    std::array<char, 1024> text;
    std::int64_t row;
};

thread_local Message message{{}, Failure::NO_ROW};

}  // namespace

void set_message(const char* text, std::int64_t row) noexcept
{
    std::strncpy(message.text.data(), text, message.text.size() - 1);
    message.row = row;
}

void wrong(const std::string& what)
{
    throw Failure(VEMKN_FIT_ARGUMENT, what);
}

Matrix matrix_of(const double* numbers, std::size_t rows, std::size_t columns)
{
    constexpr std::size_t MOST_ROWS = std::numeric_limits<int>::max(), MOST_COLUMNS = 100000;
    if (rows > MOST_ROWS) wrong("rows is above " + std::to_string(MOST_ROWS));
    if (columns < 1 || columns > MOST_COLUMNS)
        wrong("columns is not 1 to " + std::to_string(MOST_COLUMNS));
    return Eigen::Map<const Matrix>(
        numbers, static_cast<Eigen::Index>(rows), static_cast<Eigen::Index>(columns));
}

void check_given(const void* pointer, const char* argument)
{
    if (pointer == nullptr) wrong(std::string(argument) + " is a null pointer");
}

}  // namespace vemknfit

const char* vemkn_fit_version(void)
{
    return VEMKN_VERSION;
}

const char* vemkn_fit_message(void)
{
    return vemknfit::message.text.data();
}

int64_t vemkn_fit_row(void)
{
    return vemknfit::message.row;
}
