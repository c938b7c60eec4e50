#pragma once

#include <array>
#include <cstdint>

namespace dmf::internal {

/// Enciphers the contents of model files (RC4, 128 bits).
extern const std::array<std::uint8_t, 16> kDMKey;
/// Enciphers the names of model files (triple DES, three keys).
extern const std::array<std::uint8_t, 24> kDM3DESKey;

} // namespace dmf::internal
