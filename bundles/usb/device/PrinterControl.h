#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>

#include "Descriptors.h"

namespace dmf::usb {

/// One control request to a device: what of the answer came, in bytes, or nothing when it refused or took too long.
struct ControlRequest {
    std::uint8_t type = 0;
    std::uint8_t request = 0;
    std::uint16_t value = 0;
    std::uint16_t index = 0;
};
using ControlTransfer =
    std::function<std::optional<std::size_t>(const ControlRequest& request, std::span<std::uint8_t> data)>;

/// The requests that printers' interfaces know, over any way of making control transfers.
[[nodiscard]] std::optional<std::string> readDeviceId(const ControlTransfer& transfer, int configurationIndex,
                                                      const Interface& interface);
/// The bits of a parallel port: 0x20 paper empty, 0x10 selected, 0x08 no error.
[[nodiscard]] std::optional<std::uint8_t> readPortStatus(const ControlTransfer& transfer, const Interface& interface);
/// Makes the device forget what it has taken and not worked on, and what it wanted to send.
[[nodiscard]] bool resetPort(const ControlTransfer& transfer, const Interface& interface);

} // namespace dmf::usb
