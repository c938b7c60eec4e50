#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace dmf::usb {

/// One way in which bytes enter or leave a device.
struct Endpoint {
    std::uint8_t address = 0;
    std::uint8_t attributes = 0;
    std::uint16_t maxPacketSize = 0;

    [[nodiscard]] bool isBulk() const noexcept { return (attributes & 3) == 2; }
    [[nodiscard]] bool isIn() const noexcept { return (address & 0x80) != 0; }
    friend bool operator==(const Endpoint&, const Endpoint&) = default;
};

/// One alternate setting of one interface.
struct Interface {
    std::uint8_t number = 0;
    std::uint8_t alternate = 0;
    std::uint8_t classCode = 0;
    std::uint8_t subclass = 0;
    std::uint8_t protocol = 0;
    std::vector<Endpoint> endpoints;

    /// The first bulk endpoint of that direction; null when there is none.
    [[nodiscard]] const Endpoint* bulk(bool in) const noexcept;
    friend bool operator==(const Interface&, const Interface&) = default;
};

struct Configuration {
    std::uint8_t value = 0;
    std::vector<Interface> interfaces; ///< all alternate settings, in the order in which the device lists them
    friend bool operator==(const Configuration&, const Configuration&) = default;
};

/// What a device says of its build. The bytes come from the device: whatever they are, nothing is read past them, and
/// what follows a part that does not fit counts as not said.
struct Descriptors {
    std::uint16_t vendorId = 0;
    std::uint16_t productId = 0;
    std::vector<Configuration> configurations;

    /// Nothing when the bytes do not begin with a whole device descriptor.
    [[nodiscard]] static std::optional<Descriptors> read(std::span<const std::uint8_t> bytes);
    /// The configuration of that value, else the first; null when there is none at all.
    [[nodiscard]] const Configuration* configuration(int value) const noexcept;
    friend bool operator==(const Descriptors&, const Descriptors&) = default;
};

} // namespace dmf::usb
