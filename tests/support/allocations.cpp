#include "support/allocations.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace allocations {

namespace {

std::atomic<Watcher> current{nullptr};
thread_local bool inside = false;

struct Inside {
    Inside() { inside = true; }

    ~Inside() { inside = false; }
};

void* allocate(std::size_t size)
{
    const Watcher watcher = current.load();
    if (watcher != nullptr && !inside) {
        const Inside mark;
        watcher();
    }
    if (void* const memory = std::malloc(size == 0 ? 1 : size)) return memory;
    throw std::bad_alloc();
}

void* allocate_or_null(std::size_t size) noexcept
{
    try {
        return allocate(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

}  // namespace

void watch(Watcher watcher)
{
    current.store(watcher);
}

}  // namespace allocations

// All forms, so that none is left to a sanitizer, which would miss its partner.

void* operator new(std::size_t size)
{
    return allocations::allocate(size);
}

void* operator new[](std::size_t size)
{
    return allocations::allocate(size);
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    return allocations::allocate_or_null(size);
}

void* operator new[](std::size_t size, const std::nothrow_t&) noexcept
{
    return allocations::allocate_or_null(size);
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete[](void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}

void operator delete[](void* memory, std::size_t) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, const std::nothrow_t&) noexcept
{
    std::free(memory);
}

void operator delete[](void* memory, const std::nothrow_t&) noexcept
{
    std::free(memory);
}
