#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <new>
#include <stdexcept>
#include <utility>

namespace dmf {

/// A list that several value objects share and that is copied before the first change (copy on write). The elements lie
/// in one block of memory with their count, so that a list costs one allocation and an empty one none.
/// Reading a shared list from several threads is safe; each list object itself is reentrant.
template <class T>
class SharedList {
public:
    SharedList() noexcept = default;
    SharedList(const SharedList& other) noexcept : block_(other.block_)
    {
        if (block_)
            block_->references.fetch_add(1, std::memory_order_relaxed);
    }
    SharedList(SharedList&& other) noexcept : block_(std::exchange(other.block_, nullptr)) {}
    SharedList& operator=(SharedList other) noexcept
    {
        std::swap(block_, other.block_);
        return *this;
    }
    ~SharedList()
    {
        // The last owner must see every use that other owners made before they let go. Who is the only owner already
        // needs no costly change of the count: nobody else is there to change it.
        if (block_ && (isUnique() || block_->references.fetch_sub(1, std::memory_order_acq_rel) == 1))
            destroy(block_);
    }

    [[nodiscard]] std::size_t size() const noexcept { return block_ ? block_->size : 0; }
    [[nodiscard]] const T* begin() const noexcept { return block_ ? block_->elements() : nullptr; }
    [[nodiscard]] const T* end() const noexcept { return block_ ? block_->elements() + block_->size : nullptr; }
    [[nodiscard]] bool sharesStorageWith(const SharedList& other) const noexcept { return block_ == other.block_; }

    /// Makes room for `count` elements in all; throws std::length_error for more than memory can have.
    void reserve(std::size_t count)
    {
        if (count > 0 && !hasRoomFor(count))
            moveTo(std::max(count, size()));
    }
    /// The elements for changing, in a block that nobody else shares.
    [[nodiscard]] T* edit()
    {
        reserve(size());
        return block_ ? block_->elements() : nullptr;
    }
    /// Appends the element that `make` gives, which may be made of what lies in this list.
    template <class Make>
    void appendMade(Make make)
    {
        if (hasRoomFor(size() + 1))
            return block_->append(make);
        T made = make();
        moveTo(std::max(size() + 1, 2 * size()));
        block_->append([&made]() -> T&& { return std::move(made); });
    }
    void append(T&& element)
    {
        appendMade([&element]() -> T&& { return std::move(element); });
    }
    /// Puts an element before the one at `index`, which is at most the size.
    void insert(std::size_t index, T element)
    {
        append(std::move(element));
        T* const place = block_->elements() + index;
        T* const last = block_->elements() + block_->size - 1;
        T moved = std::move(*last);
        std::move_backward(place, last, last + 1);
        *place = std::move(moved);
    }
    void erase(std::size_t index)
    {
        T* const elements = edit();
        std::move(elements + index + 1, elements + block_->size, elements + index);
        std::destroy_at(elements + --block_->size);
    }

private:
    struct Block {
        std::atomic<std::uint32_t> references{1};
        std::size_t size = 0;
        std::size_t capacity = 0;

        [[nodiscard]] T* elements() noexcept { return reinterpret_cast<T*>(this + 1); }
        /// Makes the element in its place.
        template <class Make>
        void append(Make make)
        {
            ::new (static_cast<void*>(elements() + size)) T(make());
            ++size;
        }
    };

    [[nodiscard]] static Block* make(std::size_t capacity)
    {
        static_assert(alignof(T) <= alignof(Block) && sizeof(Block) % alignof(T) == 0);
        if (capacity > (std::numeric_limits<std::size_t>::max() - sizeof(Block)) / sizeof(T))
            throw std::length_error("more elements than memory can hold");
        auto* const block = ::new (::operator new(sizeof(Block) + capacity * sizeof(T))) Block;
        block->capacity = capacity;
        return block;
    }
    static void destroy(Block* block) noexcept
    {
        std::destroy_n(block->elements(), block->size);
        std::destroy_at(block);
        ::operator delete(block);
    }

    [[nodiscard]] bool isUnique() const noexcept { return block_->references.load(std::memory_order_acquire) == 1; }
    [[nodiscard]] bool hasRoomFor(std::size_t count) const noexcept
    {
        return block_ && block_->capacity >= count && isUnique();
    }

    /// Moves on to a block of that capacity, at least the size; what others share is copied.
    void moveTo(std::size_t capacity)
    {
        SharedList fresh;
        fresh.block_ = make(capacity);
        if (block_ && isUnique()) {
            for (T* element = block_->elements(); element != end(); ++element)
                fresh.block_->append([element]() -> T&& { return std::move(*element); });
        } else {
            for (const T& element : *this)
                fresh.block_->append([&element]() -> const T& { return element; });
        }
        std::swap(block_, fresh.block_);
    }

    Block* block_ = nullptr;
};

} // namespace dmf
