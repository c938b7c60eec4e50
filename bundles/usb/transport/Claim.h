#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "device/Choice.h"
#include "device/PrinterControl.h"
#include "tree/AttachedDevice.h"

struct libusb_context;
struct libusb_device_handle;

namespace dmf::usb {

/// One interface of one device in our hands. The kernel's printer driver is taken off for that time, and no other
/// driver is; other interfaces are left alone. Given back, with the driver, by the destructor. Everything here waits
/// for the system, and some for the device.
class Claim {
public:
    enum class Failure { none, gone, notPermitted, busy, failed };
    struct Result {
        std::unique_ptr<Claim> claim; ///< empty after a failure
        Failure failure = Failure::none;
        std::string reason; ///< for people
    };
    [[nodiscard]] static Result make(const AttachedDevice& device, const Choice& choice);
    ~Claim();
    Claim(const Claim&) = delete;
    Claim& operator=(const Claim&) = delete;

    [[nodiscard]] libusb_context* context() const noexcept { return context_; }
    [[nodiscard]] libusb_device_handle* handle() const noexcept { return handle_; }
    [[nodiscard]] const Choice& choice() const noexcept { return choice_; }
    /// Good for as long as the claim; a second each, at most. Another thread must not be in the middle of closing.
    [[nodiscard]] ControlTransfer control() const;

private:
    explicit Claim(Choice choice) : choice_(std::move(choice)) {}
    [[nodiscard]] int open(const AttachedDevice& device);
    [[nodiscard]] int take(const AttachedDevice& device);
    [[nodiscard]] int selectAlternate(const AttachedDevice& device);

    const Choice choice_;
    libusb_context* context_ = nullptr;
    libusb_device_handle* handle_ = nullptr;
    bool isClaimed_ = false;
    bool hasDetached_ = false;
};

} // namespace dmf::usb
