#include "runtime/call_memory.h"

#include <cstdint>
#include <new>

#include "runtime/thread_record.h"

namespace VEMKN {

// What a block begins with.
struct MemoryBlock {
    MemoryBlock* before;
};

void begin_block(std::size_t bytes)
{
    const std::size_t size = std::max(bytes, arena.block);
    if (size > PTRDIFF_MAX) throw std::bad_alloc();
    // The first line is the block's own, and operator new promises less than a line's alignment.
    auto* const memory = static_cast<std::byte*>(::operator new(size + 2 * CACHE_LINE));
    auto* const block = new (memory) MemoryBlock{arena.blocks->load(std::memory_order_relaxed)};
    while (!arena.blocks->compare_exchange_weak(block->before, block)) {
    }
    const auto address = reinterpret_cast<std::uintptr_t>(memory);
    arena.next = memory + (2 * CACHE_LINE - address % CACHE_LINE);
    arena.end = arena.next + size;
    arena.block = arena.block_after;
    arena.block_after *= 2;
}

CallMemory::CallMemory([[maybe_unused]] const BlockSizes& blocks)
{
#ifndef VEMKN_SANITIZED
    arena = {&this_thread().blocks, nullptr, nullptr, blocks.first, blocks.other, blocks.other};
#endif
}

CallMemory::~CallMemory()
{
    give_back_call_memory();
}

void give_back_call_memory()
{
    arena = {};
    MemoryBlock* block = this_thread().blocks.exchange(nullptr);
    while (block != nullptr) ::operator delete(std::exchange(block, block->before));
}

}  // namespace VEMKN
