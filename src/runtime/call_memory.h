#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <memory>
#include <type_traits>
#include <utility>
#include <vector>

namespace VEMKN {

// The memory that a call computes in. Its threads take it from the system in blocks, of a size that their work mostly fits, and cut
// their arrays from them one after the other; all of it goes back when the call ends. What an array leaves, because it has grown
// or is gone, stays unused until then, so that any thread may leave what another one took. Outside of calls, and where a
// sanitizer is to see each array, arrays have memory of their own.

struct MemoryBlock;

// Where a thread takes its arrays from.
struct Arena {
    std::atomic<MemoryBlock*>* blocks = nullptr;  // those of the call; null outside of one
    std::byte* next = nullptr;
    std::byte* end = nullptr;
    std::size_t block = 0;        // bytes of its next block
    std::size_t block_after = 0;  // and of the one after it
    std::size_t of_a_worker = 0;  // and of the first one of another thread
};

// In the block that every thread has from its start, so that an access is one instruction.
[[gnu::tls_model("initial-exec")]] inline constinit thread_local Arena arena;

inline constexpr std::size_t CACHE_LINE = 64;

// A new block for the calling thread, with room for so many bytes.
void begin_block(std::size_t bytes);

// Memory that begins where a cache line does, and shares none; for at most PTRDIFF_MAX bytes.
inline void* take_call_memory(std::size_t bytes)
{
    const std::size_t whole = (bytes + CACHE_LINE - 1) / CACHE_LINE * CACHE_LINE;
    if (whole > static_cast<std::size_t>(arena.end - arena.next)) begin_block(whole);
    return std::exchange(arena.next, arena.next + whole);
}

// Whether the calling thread computes for a call.
inline bool in_call_memory()
{
    return arena.blocks != nullptr;
}

// Bytes of the calling thread's first block, and of any other one; those after them are larger.
struct BlockSizes {
    std::size_t first = 0, other = 0;
};

// While one lives, the calling thread computes for a call of its own.
class CallMemory {
public:
    explicit CallMemory(const BlockSizes& blocks);
    ~CallMemory();
    CallMemory(const CallMemory&) = delete;
    CallMemory& operator=(const CallMemory&) = delete;
};

// The same for a thread of a team, for the call that the arena of the calling thread belongs to.
class MemoryOfTeam {
public:
    explicit MemoryOfTeam(const Arena& of_caller)
        : before_(arena), is_worker_(arena.blocks != of_caller.blocks)
    {
        if (!is_worker_) return;
        const std::size_t block = of_caller.of_a_worker;
        arena = {of_caller.blocks, nullptr, nullptr, block, block, block};
    }

    ~MemoryOfTeam()
    {
        if (is_worker_) arena = before_;
    }

    MemoryOfTeam(const MemoryOfTeam&) = delete;
    MemoryOfTeam& operator=(const MemoryOfTeam&) = delete;

private:
    Arena before_;  // not empty where the worker has left a call of its own by a jump
    bool is_worker_;
};

// Gives back the blocks of the call that the thread has left by a jump.
void give_back_call_memory();

// While one lives, what the calling thread takes is for no longer than that: its place serves again.
class PassingMemory {
public:
    PassingMemory() : before_(arena) {}

    ~PassingMemory()
    {
        if (arena.end == before_.end) arena.next = before_.next;
    }

    PassingMemory(const PassingMemory&) = delete;
    PassingMemory& operator=(const PassingMemory&) = delete;

private:
    Arena before_;
};

// For a list that lives no longer than the call in which it is made, if it is made in one.
template <class T>
class CallAllocator {
public:
    using value_type = T;
    using propagate_on_container_move_assignment = std::true_type;
    using propagate_on_container_swap = std::true_type;

    CallAllocator() : in_call_(in_call_memory()) {}

    template <class Other>
    CallAllocator(const CallAllocator<Other>& other) : in_call_(other.in_call())
    {
    }

    T* allocate(std::size_t n)
    {
        if (!in_call_) return std::allocator<T>().allocate(n);
        // T may be a pointer, and its own size is meant.
        return static_cast<T*>(
            take_call_memory(n * sizeof(T)));  // NOLINT(bugprone-sizeof-expression)
    }

    void deallocate(T* list, std::size_t n)
    {
        if (!in_call_) std::allocator<T>().deallocate(list, n);
    }

    CallAllocator select_on_container_copy_construction() const { return {}; }

    bool in_call() const { return in_call_; }

    bool operator==(const CallAllocator&) const = default;

private:
    bool in_call_;
};

template <class T>
using CallList = std::vector<T, CallAllocator<T>>;

}  // namespace VEMKN
