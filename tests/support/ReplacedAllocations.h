#pragma once

#include <cstdlib>
#include <new>

// Replaces the allocation functions of a test program, in all forms, so that no two allocators meet. One file of the
// program includes it, and defines which allocations fail.

/// Whether the allocation that is asked for now is to fail.
static bool allocationFails() noexcept;

inline void* allocatedUnlessFailing(std::size_t size) noexcept
{
    return allocationFails() ? nullptr : std::malloc(size > 0 ? size : 1);
}

void* operator new(std::size_t size)
{
    if (void* const memory = allocatedUnlessFailing(size))
        return memory;
    throw std::bad_alloc();
}
void* operator new[](std::size_t size)
{
    return operator new(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    return allocatedUnlessFailing(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept
{
    return allocatedUnlessFailing(size);
}
void operator delete(void* memory) noexcept
{
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}
void operator delete[](void* memory) noexcept
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
