#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <span>
#include <vector>

#include "device/Descriptors.h"

struct libusb_device_handle;
struct libusb_transfer;

namespace dmf::usb {

/// How one transfer ended.
enum class TransferEnd { underWay, done, halted, cancelled, gone, failed };

/// One endpoint's transfers, several under way at once, in the order in which they were begun. Under the lock that it
/// is given, but for the endings, which take it; `whenEnded` is called with it held, on the thread that handles events.
class Transfers {
public:
    struct Slot {
        std::vector<std::uint8_t> bytes;
        std::size_t length = 0; ///< what was asked for
        std::size_t moved = 0;  ///< once it has ended
        TransferEnd end = TransferEnd::underWay;
        libusb_transfer* transfer = nullptr;
        Transfers* owner = nullptr;
    };

    Transfers(std::mutex& lock, const Endpoint& endpoint, std::size_t slots, std::size_t size);
    ~Transfers();
    Transfers(const Transfers&) = delete;
    Transfers& operator=(const Transfers&) = delete;

    /// From here on transfers can be begun. `argument` outlives them all.
    void attach(libusb_device_handle* handle, void (*whenEnded)(void*), void* argument) noexcept;

    [[nodiscard]] bool hasFree() const noexcept { return !free_.empty(); }
    [[nodiscard]] std::size_t slotSize() const noexcept { return slotSize_; }
    [[nodiscard]] const Endpoint& endpoint() const noexcept { return endpoint_; }
    /// Begins one in a free slot; false when that cannot be. A sending one copies `bytes`; `endsHere` sends an empty
    /// packet behind a last packet that is full, else the far end would wait for more.
    [[nodiscard]] bool begin(std::span<const std::uint8_t> bytes, bool endsHere);
    [[nodiscard]] bool beginReceiving();

    /// The oldest, if it has ended; null otherwise.
    [[nodiscard]] Slot* ended() noexcept;
    /// Makes the oldest free.
    void drop();
    /// Asks all that are under way to end.
    void cancel() noexcept;
    [[nodiscard]] bool areUnderWay() const noexcept { return underWay_ > 0; }
    [[nodiscard]] bool isEmpty() const noexcept { return begun_.empty(); }
    /// The bytes of all that were begun and not dropped.
    [[nodiscard]] std::size_t lengthBegun() const noexcept;

    /// On the thread that handles events.
    static void transferEnded(libusb_transfer* transfer);

private:
    [[nodiscard]] bool submit(Slot& slot, bool endsHere);

    std::mutex& lock_;
    const Endpoint endpoint_;
    const std::size_t slotSize_;
    libusb_device_handle* handle_ = nullptr;
    void (*ended_)(void*) = nullptr;
    void* argument_ = nullptr;
    std::vector<std::unique_ptr<Slot>> slots_;
    std::vector<Slot*> free_;
    std::deque<Slot*> begun_;
    int underWay_ = 0;
};

} // namespace dmf::usb
