#include "bench/driver/allocation_counter.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<bool> g_counting{false};
std::atomic<std::uint64_t> g_calls{0};

void* CountedAllocate(std::size_t size)
{
    if (g_counting.load(std::memory_order_relaxed))
        g_calls.fetch_add(1, std::memory_order_relaxed);
    return std::malloc(size == 0 ? 1 : size);
}

}  // namespace

void StartCountingNew()
{
    g_calls = 0;
    g_counting = true;
}

std::uint64_t StopCountingNew()
{
    g_counting = false;
    return g_calls.load();
}

void* operator new(std::size_t size)
{
    if (void* block = CountedAllocate(size))
        return block;
    throw std::bad_alloc();
}
void* operator new[](std::size_t size)
{
    if (void* block = CountedAllocate(size))
        return block;
    throw std::bad_alloc();
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return CountedAllocate(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return CountedAllocate(size); }
void operator delete(void* block) noexcept { std::free(block); }
void operator delete[](void* block) noexcept { std::free(block); }
void operator delete(void* block, std::size_t) noexcept { std::free(block); }
void operator delete[](void* block, std::size_t) noexcept { std::free(block); }
