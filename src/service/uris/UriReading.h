#pragma once

#include <dmf/platform/Value.h>

#include <set>
#include <string>
#include <string_view>

#include "service/uris/UriPieces.h"

namespace dmf::internal {

/// The readers of the families of schemes. Each takes a whole URI, adds what it says in the order of its form, and
/// gives false for one that does not follow that form. They leave out the connection type: that is the scheme's.
/// Thread-safe.
using UriReader = bool (*)(std::string_view uri, UriEntries& components);
[[nodiscard]] bool readUsbUri(std::string_view uri, UriEntries& components);
[[nodiscard]] bool readSocketUri(std::string_view uri, UriEntries& components);
[[nodiscard]] bool readBonjourUri(std::string_view uri, UriEntries& components);
[[nodiscard]] bool readBluetoothUri(std::string_view uri, UriEntries& components);
[[nodiscard]] bool readQlipUri(std::string_view uri, UriEntries& components);
[[nodiscard]] bool readVastelUri(std::string_view uri, UriEntries& components);

/// What the pairs of a universal URI's path say, the connection type, which it must name, included.
[[nodiscard]] std::optional<Dictionary> readUniversalPath(std::string_view path);

enum class UriVerdict { read, noUri, tooLong, holdsZero, malformed, unknownType, foreignVendor };

struct UriContents {
    UriVerdict verdict = UriVerdict::noUri;
    std::string_view scheme;
    Dictionary components; ///< to be used only where the URI was read
};

/// Reads a URI of any scheme, without a word in the log. Thread-safe.
[[nodiscard]] UriContents readUri(std::string_view uri);

/// Whether the scheme is that of a transport, in any letter case.
[[nodiscard]] bool isTransportScheme(std::string_view scheme) noexcept;
/// The connection types of all transports' schemes.
[[nodiscard]] const std::set<std::string, std::less<>>& transportConnectionTypes();

} // namespace dmf::internal
