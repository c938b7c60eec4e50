#pragma once

#include <cstdlib>
#include <new>

/// While it lives, only so many allocations of the calling thread succeed. One file of a test program includes it: it
/// replaces the program's allocation functions.
class FailingAllocations {
public:
    explicit FailingAllocations(int allowed) { left() = allowed; }
    ~FailingAllocations() { left() = -1; }
    FailingAllocations(const FailingAllocations&) = delete;
    FailingAllocations& operator=(const FailingAllocations&) = delete;

    static int& left() noexcept
    {
        static thread_local int count = -1; // negative: no limit
        return count;
    }
};

void* operator new(std::size_t size)
{
    int& left = FailingAllocations::left();
    void* const memory = left == 0 ? nullptr : std::malloc(size);
    if (left > 0)
        --left;
    if (!memory)
        throw std::bad_alloc();
    return memory;
}
void operator delete(void* memory) noexcept
{
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}
