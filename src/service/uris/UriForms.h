#pragma once

#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>

namespace dmf::internal {

/// The forms in which URIs are written, for those who know the parts. The standard form of a transport is a whole URI;
/// its universal form is made of pairs, "&KEY=VALUE" each, that `universalUri` puts a head before. All thread-safe.
[[nodiscard]] std::string usbUri(std::string_view vendor, std::string_view model, std::string_view serialNumber);
[[nodiscard]] std::string usbPairs(std::string_view vendor, std::string_view model, std::string_view serialNumber);

/// An address is IPv6 when it holds a colon; then its first "%", which sets off the zone, is written as "%25".
[[nodiscard]] std::string addressUri(std::string_view address);
[[nodiscard]] std::string addressPairs(std::string_view address);

[[nodiscard]] std::string hostUri(std::string_view hostName);
[[nodiscard]] std::string hostPairs(std::string_view hostName);

inline constexpr std::string_view kDefaultBonjourType = "_pdl-datastream._tcp.";
inline constexpr std::string_view kDefaultBonjourDomain = "local.";
[[nodiscard]] std::string bonjourUri(std::string_view name, std::string_view type, std::string_view domain);
[[nodiscard]] std::string bonjourPairs(std::string_view name, std::string_view type, std::string_view domain);

using Pair = std::pair<std::string_view, std::string_view>;
[[nodiscard]] std::string joinedPairs(std::initializer_list<Pair> pairs);
[[nodiscard]] std::string universalUri(std::string_view scheme, std::string_view pairs);

[[nodiscard]] std::string joined(std::initializer_list<std::string_view> pieces);

} // namespace dmf::internal
