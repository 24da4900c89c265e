#include <array>
#include <cstring>

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

void check_given(const void* pointer, const char* argument)
{
    if (pointer == nullptr)
        throw Failure(VEMKN_FIT_ARGUMENT, std::string(argument) + " is a null pointer");
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
