#pragma once

#include <string_view>

namespace dmf::internal {

/// The alphabet of base64 in the order of its values.
inline constexpr std::string_view kDMBase64 = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

} // namespace dmf::internal
