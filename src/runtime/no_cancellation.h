#pragma once

#include <pthread.h>

namespace VEMKN {

// While one lives, a request to cancel the calling thread waits. A thread that were cancelled while it waits for its turn
// would never pass the turn on.
class NoCancellation {
public:
    NoCancellation() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before_); }

    ~NoCancellation() { pthread_setcancelstate(before_, nullptr); }

    NoCancellation(const NoCancellation&) = delete;
    NoCancellation& operator=(const NoCancellation&) = delete;

private:
    int before_ = PTHREAD_CANCEL_ENABLE;
};

}  // namespace VEMKN
