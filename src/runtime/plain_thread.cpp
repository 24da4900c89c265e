#include "runtime/plain_thread.h"

#include <pthread.h>
#include <signal.h>

#include <cctype>
#include <cstdlib>
#include <mutex>
#include <vector>

#include "runtime/no_cancellation.h"

namespace VEMKN {

namespace {

const char* skip_blanks(const char* text)
{
    while (std::isspace(static_cast<unsigned char>(*text)) != 0) ++text;
    return text;
}

// Bytes that OMP_STACKSIZE asks for, 0 if it does not, or not as OpenMP reads it: a number, in kilobytes unless a letter says
// otherwise.
std::size_t openmp_stack_size()
{
    const char* text = std::getenv("OMP_STACKSIZE");
    if (text == nullptr) text = std::getenv("GOMP_STACKSIZE");
    if (text == nullptr) return 0;
    text = skip_blanks(text);
    if (std::isdigit(static_cast<unsigned char>(*text)) == 0) return 0;
    char* end = nullptr;
    const std::size_t number = std::strtoul(text, &end, 10);
    const char* unit = skip_blanks(end);
    int shift = 10;
    if (*unit != '\0') {
        switch (std::toupper(static_cast<unsigned char>(*unit++))) {
            case 'B':
                shift = 0;
                break;
            case 'K':
                break;
            case 'M':
                shift = 20;
                break;
            case 'G':
                shift = 30;
                break;
            default:
                return 0;
        }
    }
    const bool fits = number <= (~std::size_t{0} >> shift);
    return *skip_blanks(unit) == '\0' && fits ? number << shift : 0;
}

// Read when the library is loaded, as OpenMP does: a host may set variables on another thread later.
const std::size_t stack_size = openmp_stack_size();

void* wait_for(void* released)
{
    auto* const mutex = static_cast<std::mutex*>(released);
    mutex->lock();
    mutex->unlock();
    return nullptr;
}

}  // namespace

int threads_to_be_had(int wanted)
{
    const NoCancellation whole;
    std::vector<pthread_t> threads(static_cast<std::size_t>(wanted));
    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0) return 0;
    // A size that is refused here is refused by OpenMP too, which then takes the default.
    if (stack_size != 0) pthread_attr_setstacksize(&attributes, stack_size);
    // They take no signal that is meant for the host's threads.
    sigset_t all, before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    std::mutex released;
    int started = 0;
    {
        const std::lock_guard together(released);
        while (started < wanted && pthread_create(&threads[static_cast<std::size_t>(started)],
                                                  &attributes,
                                                  wait_for,
                                                  &released) == 0) {
            ++started;
        }
    }
    for (int i = 0; i < started; ++i) {
        pthread_join(threads[static_cast<std::size_t>(i)], nullptr);
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    pthread_attr_destroy(&attributes);
    return started;
}

}  // namespace VEMKN
