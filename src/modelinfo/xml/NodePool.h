#pragma once

#include <atomic>
#include <cstddef>

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
    std::size_t blockSize_ = 2048;
};

/// Has std::allocate_shared put its objects into a pool, which need not live as long as they do.
template <class T>
struct NodeAllocator {
    using value_type = T;

    explicit NodeAllocator(NodePool& from) noexcept : pool(&from) {}
    template <class Other>
    NodeAllocator(const NodeAllocator<Other>& other) noexcept : pool(other.pool)
    {
    }
    [[nodiscard]] T* allocate(std::size_t count) { return static_cast<T*>(pool->take(count * sizeof(T))); }
    void deallocate(T* piece, std::size_t) noexcept { NodePool::giveBack(piece); }
    friend bool operator==(const NodeAllocator&, const NodeAllocator&) = default;

    NodePool* pool;
};

} // namespace dmf::internal
