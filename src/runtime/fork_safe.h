#pragma once

#include <pthread.h>

#include <mutex>
#include <new>

namespace VEMKN {

// The one Record of the process, guarded by its member `mutex`. It is never destroyed, since a host thread may still be in a
// call while the process ends. A fork holds the mutex, so that the child finds the record whole; there only the forking
// thread lives on, and Record::renew_in_child(record) makes the record anew.
template <class Record>
class ForkSafe {
public:
    // One object for each Record, at namespace scope: the handlers have to be there before the first fork.
    ForkSafe() { pthread_atfork(before, in_parent, in_child); }

    Record* operator->() const { return &record(); }

    Record& operator*() const { return record(); }

private:
    static Record& record()
    {
        alignas(Record) static unsigned char storage[sizeof(Record)];
        static Record* const instance = new (storage) Record;
        return *instance;
    }

    static void before() { record().mutex.lock(); }

    static void in_parent() { record().mutex.unlock(); }

    static void in_child() { Record::renew_in_child(record()); }
};

}  // namespace VEMKN
