#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include <dmf/platform/Value.h>

#include "device/Choice.h"
#include "tree/AttachedDevice.h"
#include "tree/Identity.h"

namespace dmf::usb {

/// One plugging in of one device, with all that is known of it by now.
struct Sighting {
    std::uint64_t number = 0; ///< never the same for two pluggings in
    AttachedDevice device;
    std::optional<std::string> deviceId;
    std::optional<Identity> identity; ///< stays once it is there
    TransportRows rows;
};
using Sightings = std::map<std::string, std::shared_ptr<const Sighting>>; // by place

/// The USB as it is at one moment.
struct View {
    Sightings devices;
    Dictionary trouble; ///< error record of what is in the way; empty when nothing is
};

/// What can be in the way, as the error code of a view's trouble.
enum class WatchTrouble : std::int32_t {
    noEvents = 1, ///< the system tells no events, so what happens is seen seconds later
    noTree = 2,   ///< the system shows no tree of devices
    noAccess = 3, ///< a device that could be served may not be used; the description says why
};

} // namespace dmf::usb
