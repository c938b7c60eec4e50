#pragma once

#include <dmf/ADMXMLNodeList.h>

#include <new>

namespace dmf::internal {

/// The nodes of a list follow it.
struct NodeList::Block {
    std::uint32_t size;
    std::uint32_t capacity;
    Block* next; // among those that wait for their burial

    [[nodiscard]] Pointer* nodes() noexcept { return reinterpret_cast<Pointer*>(this + 1); }
};

/// Lets the nodes of dying lists go. A node that dies of it brings a list of its own, which waits for its turn instead
/// of being taken apart within: so no tree is too deep. Nothing is asked but to let go: whoever has got hold of a node
/// in time, through a weak pointer or another tree, has it whole, for only the end of a node itself touches its
/// children. Takes no memory. Each thread buries what dies on it.
class Burial {
public:
    static void of(NodeList::Block* block) noexcept;

private:
    struct Waiting {
        NodeList::Block* first = nullptr;
        bool isUnderWay = false;
    };
    static void letGo(NodeList::Block* block) noexcept;
    static thread_local Waiting waiting;
};

} // namespace dmf::internal
