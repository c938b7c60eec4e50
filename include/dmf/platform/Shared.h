#pragma once

#include <atomic>
#include <cstdint>
#include <utility>

namespace dmf {

/// Storage that several value objects share and that is copied before the first change (copy on write).
/// Reading shared storage from several threads is safe; each value object itself is reentrant.
template <class T>
class Shared {
public:
    Shared() noexcept = default;
    Shared(const Shared& other) noexcept : box_(other.box_)
    {
        if (box_)
            box_->references.fetch_add(1, std::memory_order_relaxed);
    }
    Shared(Shared&& other) noexcept : box_(std::exchange(other.box_, nullptr)) {}
    Shared& operator=(Shared other) noexcept
    {
        std::swap(box_, other.box_);
        return *this;
    }
    ~Shared()
    {
        // The last owner must see every use that other owners made before they let go. Who is the only owner already
        // needs no costly change of the count: nobody else is there to change it.
        if (box_ && (box_->references.load(std::memory_order_acquire) == 1 ||
                     box_->references.fetch_sub(1, std::memory_order_acq_rel) == 1))
            delete box_;
    }

    /// The content for reading, or null while nothing was ever stored.
    [[nodiscard]] const T* get() const noexcept { return box_ ? &box_->content : nullptr; }

    /// The content for changing: made when absent, copied when somebody else shares it.
    [[nodiscard]] T& edit()
    {
        if (!box_)
            box_ = new Box;
        else if (box_->references.load(std::memory_order_acquire) != 1)
            *this = Shared(box_->content);
        return box_->content;
    }

    /// Whether something is stored and nobody else shares it.
    [[nodiscard]] bool isUnique() const noexcept
    {
        return box_ && box_->references.load(std::memory_order_acquire) == 1;
    }
    [[nodiscard]] bool sharesStorageWith(const Shared& other) const noexcept { return box_ == other.box_; }

private:
    struct Box {
        Box() = default;
        explicit Box(const T& from) : content(from) {}
        std::atomic<std::uint32_t> references{1};
        T content{};
    };
    explicit Shared(const T& content) : box_(new Box(content)) {}

    Box* box_ = nullptr;
};

} // namespace dmf
