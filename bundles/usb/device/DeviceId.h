#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace dmf::usb {

/// What a device says of itself; each is nothing when it does not say.
struct Names {
    std::optional<std::string> vendor;
    std::optional<std::string> model;
    std::optional<std::string> serialNumber;
    std::optional<std::string> description;
    friend bool operator==(const Names&, const Names&) = default;
};

/// The device ID in a device's answer, which begins with its length. Devices count that in either byte order, with and
/// without the length itself, and too long or too short; answers are cut, and filled up with anything. So the length
/// counts as far as it can be true, and the text ends where it can be no text any more. Nothing when no field is left.
[[nodiscard]] std::optional<std::string> deviceIdIn(std::span<const std::uint8_t> answer);

/// The names in a device ID. A field counts by its whole key; the first of several with one key; one whose value is
/// empty or not printable ASCII is none.
[[nodiscard]] Names namesIn(std::string_view deviceId);

/// A text from a device for people and for URIs: UTF-8 without control characters, trimmed; nothing if there is none.
[[nodiscard]] std::optional<std::string> plainText(std::string_view text);

/// The serial number, unless it is one of those that makers leave in place of one ("000000", "none").
[[nodiscard]] std::optional<std::string> trueSerialNumber(const std::optional<std::string>& text);

} // namespace dmf::usb
