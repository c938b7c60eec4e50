#pragma once

#include <memory>
#include <optional>

#include "platform/secrets/Keyring.h"

class ADMServiceInfo;

namespace dmf::internal {

/// Where the keyring keeps what belongs to the service; nothing for a service without a URI, and where that was not
/// known within so many seconds. A service that does not know its model asks its device, for as long as that takes: on
/// a thread of its own, and those who ask meanwhile wait for the same answer. Thread-safe.
[[nodiscard]] std::optional<KeyringPlace> keyringPlace(const std::shared_ptr<ADMServiceInfo>& serviceInfo,
                                                       double seconds);

} // namespace dmf::internal
