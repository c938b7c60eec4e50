#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "device/Descriptors.h"
#include "device/DeviceId.h"

namespace dmf::usb {

/// Whether programs of this user may use a device, and if not, why.
struct Access {
    enum class State {
        open,
        noNode,       ///< the file by which programs reach it is not there
        noPermission, ///< this user may not use the file
        claimed,      ///< another program uses the interface
    };
    State state = State::open;
    std::string holder; ///< of a claimed one: which program, as far as this user may see it

    /// For people, with what to do about it; empty for an open one.
    [[nodiscard]] std::string explanation(const std::string& node) const;
    friend bool operator==(const Access&, const Access&) = default;
};

/// A device as the system shows it without a question to the device itself.
struct AttachedDevice {
    std::string place; ///< the chain of ports that leads to it: "1-1.4"
    int bus = 0;
    int address = 0; ///< another one after every plugging in
    std::string node;
    Descriptors descriptors;
    int activeConfiguration = 0;
    Names names; ///< of its text descriptors
    /// The interfaces that the system has made by now, by their numbers, each with its driver; empty for none.
    std::map<int, std::string> drivers;
    /// The device ID that the kernel's printer driver read when it took the device.
    std::optional<std::string> kernelDeviceId;
    Access access;

    [[nodiscard]] const Configuration* configuration() const noexcept
    {
        return descriptors.configuration(activeConfiguration);
    }
    /// Where that one stands among the device's.
    [[nodiscard]] int configurationIndex() const noexcept;
    /// The driver of that interface; empty for none. "usbfs" stands for a program.
    [[nodiscard]] std::string driverOf(int interface) const;
    /// Whether the other is this device in the same plugging in.
    [[nodiscard]] bool isSameAttachment(const AttachedDevice& other) const noexcept
    {
        return place == other.place && bus == other.bus && address == other.address &&
               descriptors.vendorId == other.descriptors.vendorId &&
               descriptors.productId == other.descriptors.productId;
    }
    friend bool operator==(const AttachedDevice&, const AttachedDevice&) = default;
};

/// The driver's name that stands for a program which has claimed an interface.
inline constexpr const char* kProgramDriver = "usbfs";

} // namespace dmf::usb
