#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <mutex>

namespace dmf::internal {

/// The lock for filling in what an info tree's node computes on first use. A tree is shared between threads, and a
/// mutex in each of its thousands of nodes would outweigh what it guards, so that the nodes share a few by address.
/// Hold it for storing or reading a pointer only, never while computing: two nodes may have the same lock.
[[nodiscard]] inline std::mutex& lazyFillLock(const void* node)
{
    // Never destroyed: library threads may still read trees while the process ends.
    static auto* const locks = new std::array<std::mutex, 32>;
    const auto address = reinterpret_cast<std::uintptr_t>(node);
    return (*locks)[(address >> 5 ^ address >> 10) % locks->size()];
}

} // namespace dmf::internal
