#include <dmf/ADMXMLNodeList.h>

#include <dmf/ADMXMLNodeImp.h>

#include <algorithm>
#include <limits>
#include <new>
#include <stdexcept>

#include "modelinfo/xml/Burial.h"

namespace dmf::internal {

SharedText::SharedText(std::string_view text)
{
    if (text.size() > std::numeric_limits<std::uint32_t>::max())
        throw std::length_error("a text of more than four gigabytes");
    block_ = ::new (::operator new(sizeof(Block) + text.size())) Block{1, static_cast<std::uint32_t>(text.size())};
    text.copy(reinterpret_cast<char*>(block_ + 1), text.size());
}

SharedText::SharedText(const SharedText& other) noexcept : block_(other.block_)
{
    if (block_)
        block_->owners.fetch_add(1, std::memory_order_relaxed);
}

SharedText::~SharedText()
{
    // The only owner needs no costly change of the count: nobody else is there to change it.
    if (block_ && (block_->owners.load(std::memory_order_acquire) == 1 ||
                   block_->owners.fetch_sub(1, std::memory_order_acq_rel) == 1))
        ::operator delete(block_);
}

std::optional<std::string> SharedText::text() const
{
    return block_ ? std::optional<std::string>(view()) : std::nullopt;
}

NodeList::Block* NodeList::make(std::size_t capacity)
{
    if (capacity > std::numeric_limits<std::uint32_t>::max())
        throw std::length_error("an XML node with too many children");
    static_assert(alignof(Pointer) <= alignof(Block) && sizeof(Block) % alignof(Pointer) == 0);
    void* const memory = ::operator new(sizeof(Block) + capacity * sizeof(Pointer));
    return ::new (memory) Block{0, static_cast<std::uint32_t>(capacity), nullptr};
}

std::size_t NodeList::size() const noexcept
{
    const Block* const block = block_.load(std::memory_order_acquire);
    return block ? block->size : 0;
}

const NodeList::Pointer* NodeList::begin() const noexcept
{
    Block* const block = block_.load(std::memory_order_acquire);
    return block ? block->nodes() : nullptr;
}

const NodeList::Pointer* NodeList::end() const noexcept
{
    Block* const block = block_.load(std::memory_order_acquire);
    return block ? block->nodes() + block->size : nullptr;
}

void NodeList::append(Pointer node)
{
    Block* block = block_.load(std::memory_order_relaxed);
    if (!block || block->size == block->capacity) {
        Block* const larger = make(block ? std::size_t{block->capacity} + block->capacity / 2 + 1 : 1);
        if (block) {
            std::uninitialized_move_n(block->nodes(), block->size, larger->nodes());
            larger->size = block->size;
            std::destroy_n(block->nodes(), block->size);
            ::operator delete(block);
        }
        block = larger;
    }
    std::construct_at(block->nodes() + block->size++, std::move(node));
    block_.store(block, std::memory_order_release);
}

void NodeList::adopt(std::span<Pointer> nodes)
{
    if (nodes.empty())
        return;
    Block* const block = make(nodes.size());
    std::uninitialized_move(nodes.begin(), nodes.end(), block->nodes());
    block->size = block->capacity;
    block_.store(block, std::memory_order_release);
}

void NodeList::erase(std::size_t index)
{
    Block* const block = block_.load(std::memory_order_relaxed);
    if (block->size == 1)
        return clear();
    Pointer* const nodes = block->nodes();
    const Pointer gone = std::exchange(nodes[index], nullptr); // goes last: its end may run the program's code
    std::move(nodes + index + 1, nodes + block->size, nodes + index);
    std::destroy_at(nodes + --block->size);
}

void NodeList::clear() noexcept
{
    if (Block* const block = block_.exchange(nullptr, std::memory_order_acq_rel))
        Burial::of(block);
}

void NodeList::swap(NodeList& other) noexcept
{
    Block* const own = block_.exchange(other.block_.load(std::memory_order_relaxed), std::memory_order_acq_rel);
    other.block_.store(own, std::memory_order_release);
}

} // namespace dmf::internal
