#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>

class ADMXMLNodeImp;

// What the nodes of XML trees are made of. A large document has a hundred thousand nodes, so each part takes one
// pointer.

namespace dmf::internal {

/// A text, or none, that copies share. It never changes. Copies on several threads are safe; each object is reentrant.
class SharedText {
public:
    SharedText() noexcept = default;
    explicit SharedText(std::string_view text);
    [[nodiscard]] static SharedText of(const std::optional<std::string>& text)
    {
        return text ? SharedText(std::string_view(*text)) : SharedText();
    }
    SharedText(const SharedText& other) noexcept;
    SharedText(SharedText&& other) noexcept : block_(std::exchange(other.block_, nullptr)) {}
    SharedText& operator=(SharedText other) noexcept
    {
        std::swap(block_, other.block_);
        return *this;
    }
    ~SharedText();

    [[nodiscard]] explicit operator bool() const noexcept { return block_ != nullptr; }
    /// Empty for none as well; good as long as somebody has the text.
    [[nodiscard]] std::string_view view() const noexcept
    {
        return block_ ? std::string_view(reinterpret_cast<const char*>(block_ + 1), block_->size) : std::string_view();
    }
    [[nodiscard]] std::optional<std::string> text() const;
    friend bool operator==(const SharedText& left, const SharedText& right) noexcept
    {
        return left.block_ == right.block_ || (left.block_ && right.block_ && left.view() == right.view());
    }

private:
    struct Block {
        std::atomic<std::uint32_t> owners;
        std::uint32_t size; // of the characters that follow
    };
    Block* block_ = nullptr;
};

/// The children of a node, in order. When it goes, its nodes are let go one level after the other: a tree that a
/// program built can be deeper than the stack. Reentrant; a list that is empty may be given its first nodes while
/// other threads read it.
class NodeList {
public:
    using Pointer = std::shared_ptr<ADMXMLNodeImp>;

    NodeList() noexcept = default;
    ~NodeList() { clear(); }
    NodeList(const NodeList&) = delete;
    NodeList& operator=(const NodeList&) = delete;

    [[nodiscard]] std::size_t size() const noexcept;
    [[nodiscard]] bool empty() const noexcept { return block_.load(std::memory_order_acquire) == nullptr; }
    [[nodiscard]] const Pointer* begin() const noexcept;
    [[nodiscard]] const Pointer* end() const noexcept;
    [[nodiscard]] const Pointer& operator[](std::size_t index) const noexcept { return begin()[index]; }

    void append(Pointer node);
    /// Moves the nodes into a list that is empty and takes no more room than they need.
    void adopt(std::span<Pointer> nodes);
    void erase(std::size_t index);
    /// Keeps those for which `isKept`, as they are.
    template <class IsKept>
    void keep(IsKept isKept)
    {
        NodeList kept;
        for (const Pointer& node : *this) {
            if (isKept(*node))
                kept.append(node);
        }
        swap(kept);
    }
    void clear() noexcept;
    void swap(NodeList& other) noexcept;

private:
    friend class Burial;
    struct Block;
    [[nodiscard]] static Block* make(std::size_t capacity);
    /// Null for an empty list. Read by threads that read the tree, one of which may fill it in.
    std::atomic<Block*> block_{nullptr};
};

} // namespace dmf::internal
