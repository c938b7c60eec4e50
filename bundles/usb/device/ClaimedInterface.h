#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "PrinterControl.h"

namespace dmf::usb {

/// An interface that this process has claimed for some control requests, of a device that nobody else uses. Nothing
/// is detached for it: an interface that a driver or a program has is left alone. Given back at the end.
class ClaimedInterface {
public:
    /// Not open when the device cannot be opened or the interface is somebody's. Each request takes `limit` at most.
    ClaimedInterface(const std::string& node, int interface, std::chrono::milliseconds limit);
    ~ClaimedInterface();
    ClaimedInterface(const ClaimedInterface&) = delete;
    ClaimedInterface& operator=(const ClaimedInterface&) = delete;

    [[nodiscard]] bool isOpen() const noexcept { return isClaimed_; }
    /// Good for as long as this object lives.
    [[nodiscard]] ControlTransfer transfer() const;

private:
    int file_ = -1;
    const int interface_;
    const std::chrono::milliseconds limit_;
    bool isClaimed_ = false;
};

} // namespace dmf::usb
