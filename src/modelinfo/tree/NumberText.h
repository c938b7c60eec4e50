#pragma once

#include <string_view>

namespace dmf::internal {

/// The number that the text begins with, after white space, in single precision; 0 when there is none. Beyond the
/// range of a float it is infinite, or 0. Never by the host's locale.
[[nodiscard]] float leadingNumber(std::string_view text) noexcept;

} // namespace dmf::internal
