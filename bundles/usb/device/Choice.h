#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Descriptors.h"

namespace dmf::usb {

/// What is out of the ordinary with the interface that a model uses; from the model database.
struct Quirks {
    bool isUnidirectional = false;     ///< what it sends is not worth reading: answers to reads never come
    bool keepsKernelDriverOff = false; ///< the kernel's driver is not attached again after use
    bool wantsSoftReset = false;       ///< is asked to reset its port before the first byte
    bool wantsDelayedClose = false;    ///< loses the end of a job when the interface is given back at once
    friend bool operator==(const Quirks&, const Quirks&) = default;
};

/// A row of the model database about USB: which interface serves a channel, or is not to be used. A number that is not
/// given matches every interface.
struct TransportRow {
    std::string channel; ///< of an exclusion: empty for all channels
    std::optional<int> classCode, subclass, protocol, alternate;
    Quirks quirks;

    [[nodiscard]] bool matches(const Interface& interface) const noexcept;
    friend bool operator==(const TransportRow&, const TransportRow&) = default;
};

struct TransportRows {
    std::vector<TransportRow> channels;
    std::vector<TransportRow> exclusions;
    friend bool operator==(const TransportRows&, const TransportRows&) = default;
};

/// The interface that serves a channel, with the quirks of its use.
struct Choice {
    Interface interface;
    Quirks quirks;
    friend bool operator==(const Choice&, const Choice&) = default;
};

/// The first row of that channel for which the device has an interface that is not excluded decides. Without such a
/// row printer interfaces serve "Print", the bidirectional ones first, and mass storage serves "Storage".
[[nodiscard]] std::optional<Choice> chooseInterface(const Configuration& configuration, std::string_view channel,
                                                    const TransportRows& rows);

/// Whether some interface is a printer's: such a device has a device ID. The first that a printer language of bytes
/// is spoken on, else the first.
[[nodiscard]] const Interface* printerInterface(const Configuration& configuration) noexcept;

/// What the model database says of the model's USB; no rows for a model that it does not know. Reads files: not for
/// threads that must not wait.
[[nodiscard]] TransportRows transportRowsOfModel(const std::string& modelName);

} // namespace dmf::usb
