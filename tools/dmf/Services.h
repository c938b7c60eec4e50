#pragma once

#include <memory>
#include <string>
#include <string_view>

class ADMServiceInfo;

namespace dmf::tool {

/// Why the library does not take a URI. `logged` is what it logged, empty when it said nothing: then the text is no
/// URL.
[[nodiscard]] std::string refusalOfURI(std::string_view uri, const std::string& logged);

/// Throws Failure (nothing found) when no plug-in of this machine serves the connection type of the service: waiting
/// for its device would be in vain.
void requireTransport(const ADMServiceInfo& service);

/// The service that the URI names, with shipped mock plug-ins in use where the scheme asks for one. Throws Failure with
/// the library's reason.
[[nodiscard]] std::shared_ptr<ADMServiceInfo> serviceForURI(std::string_view uri, std::string_view deviceClass);

} // namespace dmf::tool
