#include "modelinfo/xml/NodePool.h"

#include <algorithm>
#include <limits>
#include <memory>
#include <new>

namespace dmf::internal {
namespace {

constexpr std::size_t kAlignment = alignof(void*); // of all that is put here
constexpr std::size_t kFewestPieces = 7;           // of a block
constexpr std::size_t kMostPieces = 240;
/// What the pool's own hold on its block counts: more than there are pieces.
constexpr std::size_t kHold = std::numeric_limits<std::size_t>::max() / 2;

constexpr std::size_t aligned(std::size_t size) noexcept
{
    return (size + kAlignment - 1) / kAlignment * kAlignment;
}

} // namespace

thread_local NodePool* NodePool::current = nullptr;

// A piece begins with the address of its block, and what is handed out follows.

void* NodePool::take(std::size_t size)
{
    const std::size_t length = kAlignment + aligned(size);
    if (length > room_)
        enterBlock(length);
    std::byte* const piece = next_;
    ::new (static_cast<void*>(piece)) Block*(block_);
    next_ += length;
    room_ -= length;
    ++taken_;
    return piece + kAlignment;
}

void NodePool::giveBack(void* piece) noexcept
{
    Block* const block = *reinterpret_cast<Block**>(static_cast<std::byte*>(piece) - kAlignment);
    letGo(block, 1);
}

void NodePool::letGo(Block* block, std::size_t pieces) noexcept
{
    // The last one must see every use that others made of the block before they let go.
    if (block->pieces.fetch_sub(pieces, std::memory_order_acq_rel) != pieces)
        return;
    std::destroy_at(block);
    ::operator delete(block);
}

void NodePool::leaveBlock() noexcept
{
    // Counted in one go, so that taking a piece changes no count that other threads change as well.
    if (block_)
        letGo(block_, kHold - taken_);
    block_ = nullptr;
}

void NodePool::enterBlock(std::size_t atLeast)
{
    constexpr std::size_t head = aligned(sizeof(Block));
    // In pieces of about this size, so that nothing is left over, and no more of them than an eighth of what there is.
    const std::size_t size = head + atLeast * std::clamp(used_ / 8 / atLeast, kFewestPieces, kMostPieces);
    void* const memory = ::operator new(size);
    leaveBlock();
    block_ = ::new (memory) Block{kHold};
    next_ = static_cast<std::byte*>(memory) + head;
    room_ = size - head;
    taken_ = 0;
    used_ += size;
}

} // namespace dmf::internal
