#include "runtime/plain_thread.h"

#include <pthread.h>

#include <cctype>
#include <cstdlib>

namespace VEMKN {

namespace {

// Bytes that OMP_STACKSIZE asks for, 0 if it does not: a number, in kilobytes unless a letter says otherwise.
std::size_t openmp_stack_size()
{
    const char* text = std::getenv("OMP_STACKSIZE");
    if (text == nullptr) text = std::getenv("GOMP_STACKSIZE");
    if (text == nullptr) return 0;
    char* end = nullptr;
    const std::size_t number = std::strtoul(text, &end, 10);
    while (std::isspace(static_cast<unsigned char>(*end)) != 0) ++end;
    switch (std::toupper(static_cast<unsigned char>(*end))) {
        case 'B':
            return number;
        case 'M':
            return number << 20;
        case 'G':
            return number << 30;
        default:
            return number << 10;
    }
}

// Read when the library is loaded, as OpenMP does: a host may set variables on another thread later.
const std::size_t stack_size = openmp_stack_size();

}  // namespace

bool can_start_thread()
{
    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0) return false;
    // A size that is refused here is refused by OpenMP too, which then takes the default.
    if (stack_size != 0) pthread_attr_setstacksize(&attributes, stack_size);
    pthread_t thread;
    const int failure = pthread_create(
        &thread, &attributes, [](void*) -> void* { return nullptr; }, nullptr);
    pthread_attr_destroy(&attributes);
    if (failure == 0) pthread_join(thread, nullptr);
    return failure == 0;
}

}  // namespace VEMKN
