#pragma once

#include "ReplacedAllocations.h"

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

bool allocationFails() noexcept
{
    int& left = FailingAllocations::left();
    if (left > 0)
        --left;
    else if (left == 0)
        return true;
    return false;
}
