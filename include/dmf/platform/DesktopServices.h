#pragma once

#include <cstdint>
#include <string_view>

#include <dmf/platform/Export.h>

namespace dmf {

enum class Bus : std::uint8_t { session, system };

/// What became of asking for a service on a message bus.
enum class BusServiceState : std::uint8_t {
    noBus,   ///< there is no such bus for this program, or it does not let the program in
    missing, ///< nobody on the bus has the name
    silent,  ///< bus or service did not answer in time
    answers,
};

/// What the user's keyring is good for now.
enum class KeyringState : std::uint8_t {
    noBus,     ///< no session bus, so no keyring
    noService, ///< no keyring program runs or can be started
    silent,    ///< bus or keyring did not answer in time
    noKeyring, ///< the program runs, but no keyring is set up as the default one
    locked,    ///< credentials are not found; storing one asks the user to unlock the keyring
    ready,
};

/// Whether the service (a well-known name such as "org.freedesktop.Avahi") is there and answers; does not start it.
/// For diagnosis and for programs that offer what is there only. Blocks for up to 2 seconds. Thread-safe.
[[nodiscard]] DMF_EXPORT BusServiceState busServiceState(Bus bus, std::string_view serviceName);

/// Whether credentials can be kept and found. Starts the keyring program where the bus knows how; never asks the user
/// anything. Blocks for up to 2 seconds. Thread-safe.
[[nodiscard]] DMF_EXPORT KeyringState keyringState();

} // namespace dmf
