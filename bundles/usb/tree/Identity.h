#pragma once

#include <optional>
#include <string>

#include "AttachedDevice.h"

namespace dmf::usb {

/// The parameter of a service that says what its serial number in the URI is: "port" for the place of a device that has
/// none of its own.
inline constexpr const char* kSerialNumberKindParam = "SerialNumberKind";
inline constexpr const char* kPortKind = "port";

/// By what a device is called in its URI. It comes from the device's text descriptors, which can always be read and
/// always say the same; the device ID, which may fail, stands in for the vendor and the model only where those say
/// nothing that the library accepts.
struct Identity {
    std::string vendor;
    std::string model;
    std::string serialNumber;
    bool serialNumberIsPort = false;

    /// Nothing while no vendor that the library accepts, or no model, is known.
    [[nodiscard]] static std::optional<Identity> of(const AttachedDevice& device,
                                                    const std::optional<std::string>& deviceId);
    /// The same device named by its place, for when another one has the same serial number.
    [[nodiscard]] Identity atPort(const std::string& place) const;
    [[nodiscard]] std::optional<std::string> uri() const;
    friend bool operator==(const Identity&, const Identity&) = default;
};

/// A device that is asked for, by its URI or by what is known of it.
struct Wanted {
    std::string vendor;
    std::string model;
    std::string serialNumber;

    /// Whether the device is the one: by the identity, by its place where the serial number names one, or by the names
    /// that its device ID tells.
    [[nodiscard]] bool isServedBy(const AttachedDevice& device, const std::optional<std::string>& deviceId) const;
};

} // namespace dmf::usb
