#include "Transfers.h"

#include <libusb.h>

#include <algorithm>
#include <new>

namespace dmf::usb {

namespace {
TransferEnd endOf(const libusb_transfer& transfer)
{
    switch (transfer.status) {
    case LIBUSB_TRANSFER_COMPLETED: return TransferEnd::done;
    case LIBUSB_TRANSFER_STALL: return TransferEnd::halted;
    case LIBUSB_TRANSFER_CANCELLED: return TransferEnd::cancelled;
    case LIBUSB_TRANSFER_NO_DEVICE: return TransferEnd::gone;
    default: return TransferEnd::failed;
    }
}
} // namespace

// The library calls back by this type.
extern "C" {
static void LIBUSB_CALL dmfUsbTransferEnded(libusb_transfer* transfer)
{
    Transfers::transferEnded(transfer);
}
}

Transfers::Transfers(std::mutex& lock, const Endpoint& endpoint, std::size_t slots, std::size_t size)
    : lock_(lock), endpoint_(endpoint), slotSize_(size)
{
    for (std::size_t i = 0; i < slots; ++i) {
        auto slot = std::make_unique<Slot>();
        slot->bytes.resize(size);
        slot->owner = this;
        slot->transfer = libusb_alloc_transfer(0);
        if (!slot->transfer)
            throw std::bad_alloc();
        free_.push_back(slot.get());
        slots_.push_back(std::move(slot));
    }
}

Transfers::~Transfers()
{
    for (const auto& slot : slots_)
        libusb_free_transfer(slot->transfer);
}

void Transfers::attach(libusb_device_handle* handle, void (*whenEnded)(void*), void* argument) noexcept
{
    handle_ = handle;
    ended_ = whenEnded;
    argument_ = argument;
}

bool Transfers::begin(std::span<const std::uint8_t> bytes, bool endsHere)
{
    auto& slot = *free_.back();
    slot.length = std::min(bytes.size(), slotSize_);
    std::copy_n(bytes.begin(), slot.length, slot.bytes.begin());
    return submit(slot, endsHere && slot.length == bytes.size() && slot.length % endpoint_.maxPacketSize == 0);
}

bool Transfers::beginReceiving()
{
    auto& slot = *free_.back();
    // Of whole packets: a device that sends more than there is room for breaks the transfer off.
    slot.length = slotSize_ - slotSize_ % endpoint_.maxPacketSize;
    return submit(slot, false);
}

bool Transfers::submit(Slot& slot, bool endsHere)
{
    slot.moved = 0;
    slot.end = TransferEnd::underWay;
    libusb_fill_bulk_transfer(slot.transfer, handle_, endpoint_.address, slot.bytes.data(),
                              static_cast<int>(slot.length), &dmfUsbTransferEnded, &slot, 0);
    slot.transfer->flags = endsHere ? static_cast<std::uint8_t>(LIBUSB_TRANSFER_ADD_ZERO_PACKET) : std::uint8_t{0};
    int error = libusb_submit_transfer(slot.transfer);
    if (error == LIBUSB_ERROR_NOT_SUPPORTED && endsHere) {
        slot.transfer->flags = 0;
        error = libusb_submit_transfer(slot.transfer);
    }
    if (error != 0)
        return false;
    free_.pop_back();
    begun_.push_back(&slot);
    ++underWay_;
    return true;
}

void Transfers::transferEnded(libusb_transfer* transfer)
{
    auto& slot = *static_cast<Slot*>(transfer->user_data);
    auto& own = *slot.owner;
    std::lock_guard guard(own.lock_);
    slot.moved = std::min(static_cast<std::size_t>(std::max(transfer->actual_length, 0)), slot.length);
    slot.end = endOf(*transfer);
    --own.underWay_;
    own.ended_(own.argument_);
}

Transfers::Slot* Transfers::ended() noexcept
{
    return !begun_.empty() && begun_.front()->end != TransferEnd::underWay ? begun_.front() : nullptr;
}

void Transfers::drop()
{
    free_.push_back(begun_.front());
    begun_.pop_front();
}

void Transfers::cancel() noexcept
{
    for (auto* const slot : begun_)
        if (slot->end == TransferEnd::underWay)
            (void)libusb_cancel_transfer(slot->transfer);
}

std::size_t Transfers::lengthBegun() const noexcept
{
    std::size_t length = 0;
    for (const auto* const slot : begun_)
        length += slot->length;
    return length;
}

} // namespace dmf::usb
