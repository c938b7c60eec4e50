#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Glib.h"
#include "ServiceName.h"

// The daemon's messages: what operations are given, what replies and signals hold. Readers give nothing for a message
// of another form, and for a missing one.

namespace dmf::dnssd {

inline constexpr std::int32_t kAnyInterface = -1;
inline constexpr std::int32_t kAnyProtocol = -1;

/// An item of a service browser.
struct Item {
    std::int32_t interface;
    std::int32_t protocol;
    std::string name;
    std::string domain;
};

/// What a service's SRV and TXT records say.
struct ResolvedService {
    std::string hostName; ///< in the form in which the daemon takes it back
    std::uint16_t port;
    std::vector<std::string> txt;
};

/// An item of a record browser that looks for addresses.
struct AddressItem {
    std::string address; ///< with its zone where that is needed
    bool isIPv6;
};

[[nodiscard]] GVariant* browserArguments(const std::string& type);
[[nodiscard]] GVariant* resolveArguments(const ServiceName& service, std::int32_t interface, std::int32_t protocol);
/// For the A or the AAAA records of a host.
[[nodiscard]] GVariant* addressArguments(const std::string& hostName, bool isIPv6);

[[nodiscard]] std::optional<Item> itemIn(GVariant* arguments);
[[nodiscard]] std::optional<ResolvedService> resolvedIn(GVariant* reply);
[[nodiscard]] std::optional<AddressItem> addressIn(GVariant* arguments);
/// Whether a search of the daemon has found nothing in its time; it may be asked again.
[[nodiscard]] bool isTimeOut(const GError* error);
/// The text of a browser's "Failure".
[[nodiscard]] std::string failureIn(GVariant* arguments);

} // namespace dmf::dnssd
