#pragma once

#include <span>
#include <string_view>

namespace dmf::internal {

/// The vendors whose devices the library serves. One file defines them: the sample's, or a deployment's own.
extern const std::span<const std::string_view> kDMVendors;

/// Whether the library works for devices of that vendor, whatever the case of the name's ASCII letters. Thread-safe.
[[nodiscard]] bool isAcceptedVendor(std::string_view vendor) noexcept;

} // namespace dmf::internal
