#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <optional>

namespace dmf::internal {

/// Memory for the nodes of a tree: they are many, small, made one after the other and mostly let go together. They are
/// cut from blocks that grow with the tree. A block goes with the last of its pieces, so what outlives the tree keeps
/// no more than the blocks that it lies in. The pool is reentrant; pieces are given back on any thread.
class NodePool {
public:
    NodePool() = default;
    ~NodePool() { leaveBlock(); }
    NodePool(const NodePool&) = delete;
    NodePool& operator=(const NodePool&) = delete;

    [[nodiscard]] void* take(std::size_t size);
    static void giveBack(void* piece) noexcept;
    /// The pool that the calling thread makes its next node in.
    static thread_local NodePool* current;

private:
    struct Block {
        std::atomic<std::size_t> pieces;
    };
    static void letGo(Block* block, std::size_t pieces) noexcept;
    void leaveBlock() noexcept;
    void enterBlock(std::size_t atLeast);

    Block* block_ = nullptr;
    std::byte* next_ = nullptr;
    std::size_t room_ = 0;
    std::size_t taken_ = 0; // pieces of this block
    std::size_t used_ = 0;  // by the blocks so far
};

/// Has std::allocate_shared put its objects into the pool that `makeIn` names. It keeps nothing, since what it keeps
/// would be kept with each node.
template <class T>
struct NodeAllocator {
    using value_type = T;

    NodeAllocator() noexcept = default;
    template <class Other>
    NodeAllocator(const NodeAllocator<Other>&) noexcept
    {
    }
    [[nodiscard]] T* allocate(std::size_t count)
    {
        static_assert(alignof(T) <= alignof(void*));
        return static_cast<T*>(NodePool::current->take(count * sizeof(T)));
    }
    void deallocate(T* piece, std::size_t) noexcept { NodePool::giveBack(piece); }
    friend bool operator==(const NodeAllocator&, const NodeAllocator&) = default;
};

/// A node in that pool, which need not live as long as the node does.
template <class Node>
[[nodiscard]] std::shared_ptr<Node> makeIn(NodePool& pool)
{
    NodePool::current = &pool;
    return std::allocate_shared<Node>(NodeAllocator<Node>(), std::nullopt);
}

} // namespace dmf::internal
