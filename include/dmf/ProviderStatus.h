#pragma once

#include <cstdint>

/// The statuses of connection providers that have a meaning of their own; a provider may give any other number.
/// After `success`, `notOpen`, `timedOut`, `peerEnded` and `cancelled` a synchronous transfer leaves the connection
/// open, after all others it closes it.
namespace dmf::ProviderStatus {
inline constexpr std::int16_t success = 0;
inline constexpr std::int16_t invalidParameter = -12;
inline constexpr std::int16_t timedOut = -14;
inline constexpr std::int16_t failed = -21;
inline constexpr std::int16_t notOpen = -25;
inline constexpr std::int16_t busy = -52;
inline constexpr std::int16_t peerEnded = -53;  ///< the device sends no more; writing may go on
inline constexpr std::int16_t cancelled = -200; ///< the client asked to give up
} // namespace dmf::ProviderStatus
