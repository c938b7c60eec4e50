#pragma once

#include <optional>
#include <string>
#include <vector>

#include "AttachedDevice.h"

namespace dmf::usb {

/// The system's tree of USB devices, read from its files. All may wait: a device that is just being reset makes those
/// who read its files wait. Thread-safe.

/// The places of all devices that are there, hubs and buses not counted; nothing when there is no tree to be read.
[[nodiscard]] std::optional<std::vector<std::string>> attachedPlaces();
/// The device at that place; nothing when there is none, or none whose descriptors can be read.
[[nodiscard]] std::optional<AttachedDevice> readDevice(const std::string& place);
/// All of them.
[[nodiscard]] std::vector<AttachedDevice> readAllDevices();

/// Which program has the device's file open: "name (process 12)"; empty when this user cannot see it. `isOurs` is set
/// when it is this process.
[[nodiscard]] std::string holderOf(const std::string& node, bool& isOurs);

} // namespace dmf::usb
